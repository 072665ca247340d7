#ifndef LINUX_CAPTURE_BASE_C_CALLBACK_H_
#define LINUX_CAPTURE_BASE_C_CALLBACK_H_

#include <type_traits>

namespace linux_capture {

// What a callback answers after an exception: most often memory ran out. Of an
// enumeration it has to be said, since its zero is seldom the right answer.
template <typename Result>
struct AfterException {
  static_assert(std::is_void_v<Result> || std::is_integral_v<Result> ||
                std::is_pointer_v<Result>);
  static Result Answer() noexcept { return Result(); }
};

template <auto kFunction>
struct GuardedCallback;

template <typename Result, typename... Arguments,
          Result (*kFunction)(Arguments...)>
struct GuardedCallback<kFunction> {
  static Result Call(Arguments... arguments) noexcept {
    try {
      return kFunction(arguments...);
    } catch (...) {
      return AfterException<Result>::Answer();
    }
  }
};

// `kFunction` as C code may have it: an exception must not go through the
// frames of a C library, which leave locks and counts as they are. Every
// callback that a library is given goes through here; lint looks.
template <auto kFunction>
// NOLINTNEXTLINE(readability-identifier-naming): used as a function is.
inline constexpr auto NoThrow = &GuardedCallback<kFunction>::Call;

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_BASE_C_CALLBACK_H_
