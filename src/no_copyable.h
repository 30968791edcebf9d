#ifndef NIVUR_NO_COPYABLE_H
#define NIVUR_NO_COPYABLE_H

namespace NIVUR {

/// Base of the classes that own a resource of the system and can be neither copied nor assigned.
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
