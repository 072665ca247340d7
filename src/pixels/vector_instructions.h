#ifndef LINUX_CAPTURE_PIXELS_VECTOR_INSTRUCTIONS_H_
#define LINUX_CAPTURE_PIXELS_VECTOR_INSTRUCTIONS_H_

namespace linux_capture {

// Whether this processor has those that the functions named "...ByVectors" are
// written in; without them these do nothing.
inline bool HasVectorInstructions() {
#ifdef __x86_64__
  static const bool kHasAvx2 =
      static_cast<bool>(__builtin_cpu_supports("avx2"));
  return kHasAvx2;
#else
  return false;
#endif
}

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_PIXELS_VECTOR_INSTRUCTIONS_H_
