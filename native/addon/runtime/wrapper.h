// The wrapper pattern, written once.
//
// Wrapper<Name, Fn, Result, Kinds...>::Call is the V8 callback of one exported
// function: it converts the arguments (Arguments: the exact count, argument i
// by kind i), calls Fn once, turns its result into the return value by
// Result, and releases each kind's slot in argument order. The kinds must
// spell the C declaration of Fn exactly; a mismatch does not compile. The
// client's pipelined calls (native/client-addon) convert the same way.
#pragma once

#include <v8.h>

#include <cstddef>
#include <tuple>
#include <type_traits>
#include <utility>

#include "runtime/arg_kinds.h"
#include "runtime/errors.h"

namespace keyloom {

template <class... T>
struct TypeList {};

template <class F>
struct FnTraits;
template <class R, class... A>
struct FnTraits<R (*)(A...)> {
  using ret = R;
  using args = TypeList<A...>;
};
template <class R, class... A>
struct FnTraits<R (*)(A...) noexcept> : FnTraits<R (*)(A...)> {};

// One exported function: its name and its callback.
struct FunctionEntry {
  const char* name;
  v8::FunctionCallback callback;
};

// The arguments of one function: the exact count, each converted by its kind
// in order, stopping at the first failure (raising the message of that
// argument and leaving the copies made before it allocated), and each kind's
// release after a completed call.
template <FixedString Name, class... Kinds>
struct Arguments {
  using Slots = std::tuple<typename Kinds::slot...>;
  static constexpr int kArity = static_cast<int>(sizeof...(Kinds));
  // The message type texts, read only on the failure path.
  static constexpr const char* kTexts[sizeof...(Kinds) + 1] = {Kinds::text..., nullptr};

  // False when the call must not go on: the exception is raised. `extra`
  // arguments may follow the function's own (the pipelined forms' ticket).
  [[gnu::always_inline]] static inline bool Convert(const v8::FunctionCallbackInfo<v8::Value>& info,
                                                    Slots& slots, int extra = 0) {
    return ConvertAll(info, slots, extra, std::index_sequence_for<Kinds...>{});
  }

  // Fn called with the converted values.
  template <auto Fn>
  [[gnu::always_inline]] static inline auto Apply(const Slots& slots) {
    return std::apply([](const auto&... slot) { return Fn(Kinds::get(slot)...); }, slots);
  }

  static void Release(Slots& slots) {
    std::apply([](auto&... slot) { (Kinds::release(slot), ...); }, slots);
  }

 private:
  template <class Kind, size_t I>
  [[gnu::always_inline]] static inline bool ConvertOne(v8::Isolate* isolate,
                                                       const v8::FunctionCallbackInfo<v8::Value>& info,
                                                       typename Kind::slot& slot, int& code,
                                                       int& failed) {
    int r = Kind::convert(isolate, info[static_cast<int>(I)], slot);
    if (r == 0) [[likely]] {
      return true;
    }
    code = r;
    failed = static_cast<int>(I);
    return false;
  }

  // The failure exit leaves the arguments converted before the failing one
  // as they are (string copies stay allocated).
  template <class Kind>
  static void Abandon(typename Kind::slot& slot, bool converted) {
    if constexpr (requires { Kind::abandon(slot); }) {
      if (converted) Kind::abandon(slot);
    }
  }

  template <size_t... I>
  [[gnu::always_inline]] static inline bool ConvertAll(const v8::FunctionCallbackInfo<v8::Value>& info,
                                                       Slots& slots, int extra, std::index_sequence<I...>) {
    if (info.Length() != kArity + extra) [[unlikely]] {
      RaiseArity(Name.s);
      return false;
    }
    [[maybe_unused]] v8::Isolate* isolate = info.GetIsolate();
    [[maybe_unused]] int code = 0;
    [[maybe_unused]] int failed = 0;
    // && folds left to right and stops at the first failure.
    if (!(ConvertOne<Kinds, I>(isolate, info, std::get<I>(slots), code, failed) && ...)) [[unlikely]] {
      (Abandon<Kinds>(std::get<I>(slots), static_cast<int>(I) < failed), ...);
      RaiseArgument(code, Name.s, failed + 1, kTexts[failed]);
      return false;
    }
    return true;
  }
};

// Checks at compile time that the kinds spell the C declaration of Fn.
template <auto Fn, class Result, class... Kinds>
struct Spelled {
  using Traits = FnTraits<decltype(Fn)>;
  static_assert(std::is_same_v<typename Traits::args, TypeList<typename Kinds::c_type...>>,
                "the argument kinds of this wrapper do not spell the C declaration of its "
                "function (include/keyloom.h)");
  static_assert(std::is_same_v<typename Traits::ret, typename Result::c_type>,
                "the result kind of this wrapper does not match the C result type");
  static constexpr bool value = true;
};

template <FixedString Name, auto Fn, class Result, class... Kinds>
struct Wrapper {
  static_assert(Spelled<Fn, Result, Kinds...>::value);
  using Args = Arguments<Name, Kinds...>;

  static void Call(const v8::FunctionCallbackInfo<v8::Value>& info) {
    typename Args::Slots slots{};
    if (!Args::Convert(info, slots)) [[unlikely]] {
      return;
    }
    if constexpr (std::is_void_v<typename FnTraits<decltype(Fn)>::ret>) {
      Args::template Apply<Fn>(slots);
    } else {
      Result::Set(info, info.GetIsolate(), Args::template Apply<Fn>(slots));
    }
    Args::Release(slots);
  }
};

}  // namespace keyloom

// One line of a module's function table:
// KL_EXPORT(exported name, C function, result kind, argument kinds...)
#define KL_EXPORT(NAME, FN, RESULT, ...) \
  ::keyloom::FunctionEntry{#NAME, &::keyloom::Wrapper<#NAME, &FN, RESULT __VA_OPT__(, ) __VA_ARGS__>::Call}
// A library command exported under another name, returning its code.
#define KL_CMD_AS(NAME, FN, ...) KL_EXPORT(NAME, FN, RCode, __VA_ARGS__)
// A library command under its own name, returning its code.
#define KL_CMD(FN, ...) KL_CMD_AS(FN, FN, __VA_ARGS__)
