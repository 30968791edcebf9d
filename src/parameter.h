#ifndef NIVUR_PARAMETER_H
#define NIVUR_PARAMETER_H

#include <cstddef>
#include <map>
#include <memory>
#include <string>

#include "export.h"
#include "no_copyable.h"

namespace NIVUR {

/// Base of the values of a Parameter, which deletes them through this class.
class NIVUR_EXPORT ParameterValue {
  public:
    virtual ~ParameterValue() = default;
};

/// A map from strings to values of callers' types. It owns the values and deletes them when they
/// are replaced or removed and when it is destroyed. The destructor of a removed value may use the
/// Parameter, which no longer holds that value. Not thread-safe. Callers derive their values from
/// ParameterValue:
///
///     struct Size : ParameterValue { int width, height; };
///     parameter.set("size", new Size(...));
///     const auto* size = dynamic_cast<const Size*>(parameter.get("size"));
class NIVUR_EXPORT Parameter : public NoCopyable {
  public:
    Parameter();
    ~Parameter();

    /// Takes ownership of `value` and deletes the value that the key held before. Setting the value
    /// that the key already holds does nothing; null removes the key. If memory is exhausted,
    /// `value` is deleted, the old value stays and std::bad_alloc is thrown.
    /// REQUIRES: nothing else owns `value`.
    void set(const std::string& key, ParameterValue* value);

    /// The key's value, which the Parameter owns until it is replaced or removed; null if the key
    /// does not exist.
    ParameterValue* get(const std::string& key) const;

    /// Deletes the key and its value. Returns false if the key does not exist.
    bool remove(const std::string& key);

    /// The number of keys.
    size_t size() const;

  private:
    // Ordered byte by byte.
    std::map<std::string, std::unique_ptr<ParameterValue>> _entries;
};

}  // namespace NIVUR

#endif
