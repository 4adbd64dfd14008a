// The wrapper pattern, written once.
//
// Wrapper<Name, Fn, Result, Kinds...>::Call is the V8 callback of one exported
// function: it checks the exact argument count, converts argument i by kind i,
// in order, stops at the first failure (raising the message of that argument
// and leaving the copies made before it allocated), calls Fn once, turns its
// result into the return value by Result, and releases each kind's slot in
// argument order. The kinds must spell the C declaration of Fn exactly; a
// mismatch does not compile.
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

template <FixedString Name, auto Fn, class Result, class... Kinds>
struct Wrapper {
  using Traits = FnTraits<decltype(Fn)>;
  static_assert(std::is_same_v<typename Traits::args, TypeList<typename Kinds::c_type...>>,
                "the argument kinds of this wrapper do not spell the C declaration of its "
                "function (include/keyloom.h)");
  static_assert(std::is_same_v<typename Traits::ret, typename Result::c_type>,
                "the result kind of this wrapper does not match the C result type");

  static constexpr int kArity = static_cast<int>(sizeof...(Kinds));
  // The message type texts, read only on the failure path.
  static constexpr const char* kTexts[sizeof...(Kinds) + 1] = {Kinds::text..., nullptr};

  static void Call(const v8::FunctionCallbackInfo<v8::Value>& info) {
    Run(info, std::index_sequence_for<Kinds...>{});
  }

 private:
  template <class Kind, size_t I>
  [[gnu::always_inline]] static inline bool Convert(v8::Isolate* isolate,
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
  [[gnu::always_inline]] static inline void Run(const v8::FunctionCallbackInfo<v8::Value>& info,
                                                std::index_sequence<I...>) {
    if (info.Length() != kArity) [[unlikely]] {
      RaiseArity(Name.s);
      return;
    }
    [[maybe_unused]] v8::Isolate* isolate = info.GetIsolate();
    std::tuple<typename Kinds::slot...> slots{};
    [[maybe_unused]] int code = 0;
    [[maybe_unused]] int failed = 0;
    // && folds left to right and stops at the first failure.
    if (!(Convert<Kinds, I>(isolate, info, std::get<I>(slots), code, failed) && ...)) [[unlikely]] {
      (Abandon<Kinds>(std::get<I>(slots), static_cast<int>(I) < failed), ...);
      RaiseArgument(code, Name.s, failed + 1, kTexts[failed]);
      return;
    }
    if constexpr (std::is_void_v<typename Traits::ret>) {
      Fn(Kinds::get(std::get<I>(slots))...);
    } else {
      Result::Set(info, isolate, Fn(Kinds::get(std::get<I>(slots))...));
    }
    (Kinds::release(std::get<I>(slots)), ...);
  }
};

}  // namespace keyloom

// One line of a module's function table:
// KL_EXPORT(exported name, C function, result kind, argument kinds...)
#define KL_EXPORT(NAME, FN, RESULT, ...) \
  ::keyloom::FunctionEntry{#NAME, &::keyloom::Wrapper<#NAME, &FN, RESULT __VA_OPT__(, ) __VA_ARGS__>::Call}
// A library command under its own name, returning its code.
#define KL_CMD(FN, ...) KL_EXPORT(FN, FN, RCode, __VA_ARGS__)
