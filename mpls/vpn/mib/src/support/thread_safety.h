// Clang's thread-safety attributes, which -Wthread-safety checks; empty for other compilers.
#pragma once

#if defined(__clang__)
#define MPLS_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define MPLS_THREAD_ATTRIBUTE(x)
#endif

#define MPLS_CAPABILITY(name) MPLS_THREAD_ATTRIBUTE(capability(name))
#define MPLS_SCOPED_CAPABILITY MPLS_THREAD_ATTRIBUTE(scoped_lockable)
#define MPLS_GUARDED_BY(mutex) MPLS_THREAD_ATTRIBUTE(guarded_by(mutex))
#define MPLS_EXCLUDES(...) MPLS_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define MPLS_REQUIRES(...) MPLS_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define MPLS_TRY_ACQUIRE(...) MPLS_THREAD_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
#define MPLS_RELEASE(...) MPLS_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
// For a function whose locking the analysis cannot follow; a comment beside it states why it is correct.
#define MPLS_NO_THREAD_SAFETY_ANALYSIS MPLS_THREAD_ATTRIBUTE(no_thread_safety_analysis)
