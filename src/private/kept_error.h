#ifndef NIVUR_PRIVATE_KEPT_ERROR_H
#define NIVUR_PRIVATE_KEPT_ERROR_H

#include <cerrno>

namespace NIVUR {

/// The error number of the call before it, which is also the one that its scope leaves behind:
/// whatever is looked up and logged in between may change it.
class KeptError {
  public:
    KeptError() = default;
    KeptError(const KeptError&) = delete;
    KeptError& operator=(const KeptError&) = delete;
    ~KeptError() { errno = _number; }

    int number() const { return _number; }

  private:
    const int _number = errno;
};

}  // namespace NIVUR

#endif
