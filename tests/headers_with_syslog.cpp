// <syslog.h> defines LOG_DEBUG as a macro; both headers must work in either order.
#include <syslog.h>

#include <nivur/nivur.h>

static_assert(LOG_DEBUG == 7, "the system's macro is back after our headers");
static_assert(NIVUR::LOG_ERROR == 5, "our own levels are there");

// Instantiates the templates, as callers without exceptions do.
struct Own {
    void call() {}
};
template class NIVUR::SharedPtr<Own>;
template class NIVUR::Functor0<Own, void (Own::*)()>;
