#pragma once

/// Clang's thread safety attributes (its page "Thread Safety Analysis"), which
/// scripts/analyze takes for errors; other compilers read nothing here. They can
/// only be macros.
#if defined(__clang__)
#define KOVA_THREAD_SAFETY(attribute) __attribute__((attribute))
#else
#define KOVA_THREAD_SAFETY(attribute)
#endif

/// On a type that can be held, and on a guard that holds one for a scope.
#define KOVA_CAPABILITY KOVA_THREAD_SAFETY(capability("mutex"))
#define KOVA_SCOPED_CAPABILITY KOVA_THREAD_SAFETY(scoped_lockable)

/// On a field: what has to be held to touch it.
#define KOVA_GUARDED_BY(mutex) KOVA_THREAD_SAFETY(guarded_by(mutex))

/// On a function: what its caller holds, and what its caller must not hold.
#define KOVA_REQUIRES(...) KOVA_THREAD_SAFETY(requires_capability(__VA_ARGS__))
#define KOVA_EXCLUDES(...) KOVA_THREAD_SAFETY(locks_excluded(__VA_ARGS__))

/// On a function: what it takes, gives back, tries to take, or is known to hold.
#define KOVA_ACQUIRE(...) KOVA_THREAD_SAFETY(acquire_capability(__VA_ARGS__))
#define KOVA_RELEASE(...) KOVA_THREAD_SAFETY(release_capability(__VA_ARGS__))
#define KOVA_TRY_ACQUIRE(...) KOVA_THREAD_SAFETY(try_acquire_capability(__VA_ARGS__))
#define KOVA_ASSERT_HELD(...) KOVA_THREAD_SAFETY(assert_capability(__VA_ARGS__))

/// On a function whose locking the analysis cannot follow; the reason stands there.
#define KOVA_NO_THREAD_SAFETY_ANALYSIS KOVA_THREAD_SAFETY(no_thread_safety_analysis)
