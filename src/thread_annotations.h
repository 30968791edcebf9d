#ifndef NIVUR_THREAD_ANNOTATIONS_H
#define NIVUR_THREAD_ANNOTATIONS_H

/// \file
/// Attributes by which clang++ -Wthread-safety checks that locks are held; empty for other
/// compilers. Programs may use them for fields that a NIVUR::Mutex guards:
///
///     NIVUR::Mutex _mutex;
///     int _count NIVUR_GUARDED_BY(_mutex) = 0;

/// \cond
#if defined(__clang__)
#define NIVUR_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define NIVUR_THREAD_ANNOTATION(x)
#endif

/// \endcond

/// A class of locks.
#define NIVUR_CAPABILITY(name) NIVUR_THREAD_ANNOTATION(capability(name))
/// A class that holds a lock from its constructor to its destructor.
#define NIVUR_SCOPED_CAPABILITY NIVUR_THREAD_ANNOTATION(scoped_lockable)
/// A field that is accessed with that lock held.
#define NIVUR_GUARDED_BY(lock) NIVUR_THREAD_ANNOTATION(guarded_by(lock))
/// A function that is called with those locks held.
#define NIVUR_REQUIRES(...) NIVUR_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
/// A function that acquires those locks, or without arguments the object itself.
#define NIVUR_ACQUIRE(...) NIVUR_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
/// A function that acquires a lock if it returns the first argument.
#define NIVUR_TRY_ACQUIRE(...) NIVUR_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
/// A function that releases those locks, or without arguments the object itself.
#define NIVUR_RELEASE(...) NIVUR_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
/// A function that is not checked.
#define NIVUR_NO_THREAD_SAFETY_ANALYSIS NIVUR_THREAD_ANNOTATION(no_thread_safety_analysis)

#endif
