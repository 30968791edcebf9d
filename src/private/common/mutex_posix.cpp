#include "mutex.h"

namespace NIVUR {

Mutex::Mutex() : _mutex{} {
    ::pthread_mutex_init(&_mutex, nullptr);
}

Mutex::~Mutex() {
    ::pthread_mutex_destroy(&_mutex);
}

bool Mutex::lock() {
    return ::pthread_mutex_lock(&_mutex) == 0;
}

bool Mutex::trylock() {
    return ::pthread_mutex_trylock(&_mutex) == 0;
}

bool Mutex::unlock() {
    return ::pthread_mutex_unlock(&_mutex) == 0;
}

}  // namespace NIVUR
