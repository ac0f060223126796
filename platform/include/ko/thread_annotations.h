// SPDX-License-Identifier: MIT
#ifndef KO_THREAD_ANNOTATIONS_H
#define KO_THREAD_ANNOTATIONS_H

// Lock annotations that Clang checks at compile time (-Wthread-safety). Other compilers see nothing.

#if defined(__clang__)
// An attribute for Clang.
#define KO_THREAD_ANNOTATION(attribute) __attribute__((attribute))
#else
#define KO_THREAD_ANNOTATION(attribute)
#endif

// On a member: read and write it only with `mutex` held.
#define KO_GUARDED_BY(mutex) KO_THREAD_ANNOTATION(guarded_by(mutex))
// On a function: the caller holds these locks.
#define KO_REQUIRES(...) KO_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
// On a function: the caller does not hold these locks, for the function takes them.
#define KO_EXCLUDES(...) KO_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))

// On the types of locks and on their operations; see ko/mutex.h.
#define KO_CAPABILITY(name) KO_THREAD_ANNOTATION(capability(name))
#define KO_SCOPED_CAPABILITY KO_THREAD_ANNOTATION(scoped_lockable)
#define KO_ACQUIRE(...) KO_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define KO_RELEASE(...) KO_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define KO_TRY_ACQUIRE(...) KO_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))

#endif  // KO_THREAD_ANNOTATIONS_H
