#ifndef NIVUR_FUZZ_INPUT_H
#define NIVUR_FUZZ_INPUT_H

#include <cstdint>
#include <string>
#include <utility>

namespace NIVUR {

/// Reports a broken promise. Each program that uses a model defines it: a fuzz target aborts, a
/// test fails.
void check(bool holds, const char* promise);

/// The input, consumed from its front; after its end come zeros.
class Input {
  public:
    Input(const uint8_t* data, size_t size) : _rest(data, data + size) {}
    bool empty() const { return _rest.empty(); }
    std::string rest() { return std::move(_rest); }
    unsigned below(unsigned end) { return number<uint8_t>() % end; }
    template <class Number>
    Number number() {
        Number value{};
        _rest.erase(0, _rest.copy(reinterpret_cast<char*>(&value), sizeof(value)));
        return value;
    }

  private:
    std::string _rest;
};

}  // namespace NIVUR

#endif
