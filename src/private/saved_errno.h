#ifndef NIVUR_PRIVATE_SAVED_ERRNO_H
#define NIVUR_PRIVATE_SAVED_ERRNO_H

#include <cerrno>

#include "no_copyable.h"

namespace NIVUR {

/// Saves errno, and restores it when it goes out of scope: calls in between may change it.
class SavedErrno : public NoCopyable {
  public:
    SavedErrno() = default;
    ~SavedErrno() { errno = _number; }

    int number() const { return _number; }

  private:
    const int _number = errno;
};

}  // namespace NIVUR

#endif
