#ifndef LINUX_CAPTURE_BASE_THREAD_ANNOTATIONS_H_
#define LINUX_CAPTURE_BASE_THREAD_ANNOTATIONS_H_

// What Clang's -Wthread-safety checks: which mutex guards what, which one a
// function needs or must not hold, and in which order they are taken. Other
// compilers see nothing.

#if defined(__clang__)
#define LINUX_CAPTURE_ANNOTATION(attribute) __attribute__((attribute))
#else
#define LINUX_CAPTURE_ANNOTATION(attribute)
#endif

#define CAPABILITY(name) LINUX_CAPTURE_ANNOTATION(capability(name))
#define SCOPED_CAPABILITY LINUX_CAPTURE_ANNOTATION(scoped_lockable)

// Of variables. GUARDED_BY holds for the variable itself; of a NoDestroy also
// for what it holds, which is reached by its operators alone.
#define GUARDED_BY(mutex) LINUX_CAPTURE_ANNOTATION(guarded_by(mutex))
#define PT_GUARDED_BY(mutex) LINUX_CAPTURE_ANNOTATION(pt_guarded_by(mutex))

// Of mutexes.
#define ACQUIRED_AFTER(...) \
  LINUX_CAPTURE_ANNOTATION(acquired_after(__VA_ARGS__))
#define ACQUIRED_BEFORE(...) \
  LINUX_CAPTURE_ANNOTATION(acquired_before(__VA_ARGS__))

// Of functions.
#define REQUIRES(...) LINUX_CAPTURE_ANNOTATION(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) LINUX_CAPTURE_ANNOTATION(locks_excluded(__VA_ARGS__))
#define ACQUIRE(...) LINUX_CAPTURE_ANNOTATION(acquire_capability(__VA_ARGS__))
#define TRY_ACQUIRE(...) \
  LINUX_CAPTURE_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define RELEASE(...) LINUX_CAPTURE_ANNOTATION(release_capability(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS \
  LINUX_CAPTURE_ANNOTATION(no_thread_safety_analysis)

#endif  // LINUX_CAPTURE_BASE_THREAD_ANNOTATIONS_H_
