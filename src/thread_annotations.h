#ifndef NIVUR_THREAD_ANNOTATIONS_H
#define NIVUR_THREAD_ANNOTATIONS_H

/// \file
/// Lock annotations, checked by clang++ -Wthread-safety and empty for other compilers. They are the
/// library's own means, not part of its interface.

/// \cond
#if defined(__clang__)
#define NIVUR_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define NIVUR_THREAD_ANNOTATION(x)
#endif

#define NIVUR_CAPABILITY(name) NIVUR_THREAD_ANNOTATION(capability(name))
#define NIVUR_SCOPED_CAPABILITY NIVUR_THREAD_ANNOTATION(scoped_lockable)
#define NIVUR_GUARDED_BY(lock) NIVUR_THREAD_ANNOTATION(guarded_by(lock))
#define NIVUR_REQUIRES(...) NIVUR_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define NIVUR_ACQUIRE(...) NIVUR_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define NIVUR_TRY_ACQUIRE(...) NIVUR_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define NIVUR_RELEASE(...) NIVUR_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define NIVUR_NO_THREAD_SAFETY_ANALYSIS NIVUR_THREAD_ANNOTATION(no_thread_safety_analysis)
/// \endcond

#endif
