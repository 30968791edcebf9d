#ifndef NIVUR_NO_COPYABLE_H
#define NIVUR_NO_COPYABLE_H

namespace NIVUR {

/// Base of classes whose objects can be neither copied nor moved.
class NoCopyable {
  public:
    NoCopyable(const NoCopyable&) = delete;
    NoCopyable& operator=(const NoCopyable&) = delete;

  protected:
    NoCopyable() = default;
    ~NoCopyable() = default;
};

}  // namespace NIVUR

#endif
