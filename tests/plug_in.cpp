#include <nivur/nivur.h>

// A plug-in with a type of its own, and every variable that the headers define.
struct Own {
    void call() {}
};
template class NIVUR::SharedPtr<Own>;
template class NIVUR::Functor0<Own, void (Own::*)()>;

extern const void* const all[];
const void* const all[] = {&NIVUR::Buffer::_checkByte, NIVUR::Buffer::_kParameterKey,
                           &NIVUR::Thread::INVALID_THREAD_ID,
                           &NIVUR::SharedPtr<Own>::_kDefaultPtrDisposer};
