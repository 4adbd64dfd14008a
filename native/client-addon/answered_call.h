// Answered calls: a library command called so that the JavaScript value of
// its answer comes back in one crossing: one value (a string or Buffer),
// several values (an array of them) or a count (a Number). The output cells
// live in the native frame (or in the pipelined call), the value is made of
// them and the library's copies are given back right away: no cell, reader or
// release call reaches JavaScript.
//
// The JavaScript arguments are the command's own, without its output cells,
// then one more: true for Buffers. What comes back (or what the Promise of the
// pipelined form settles with):
//   the value                              the call succeeded
//   null                                   KL_NOTFOUND
//   { code, value or null, kind, server, text }   any other code: the failure
//        record, an object without a prototype (no answer value is one)
// The forms are made from the same table lines as the library's exports
// (library_functions.inc), for every command whose outputs are the cells of
// one answer shape below.
#pragma once

#include <node_buffer.h>
#include <v8.h>

#include <array>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>

#include "keyloom.h"
#include "pipelined_call.h"
#include "runtime/arg_kinds.h"
#include "runtime/wrapper.h"

namespace keyloom {

// The last argument of an answered call: Buffers (true) or strings.
struct AsBuffer {
  using c_type = bool;
  static constexpr const char* text = "boolean";
  struct slot {
    bool on = false;
  };
  static int convert(v8::Isolate*, v8::Local<v8::Value> value, slot& s) {
    s.on = value->IsTrue();
    return 0;
  }
  static bool get(const slot& s) { return s.on; }
  static void release(slot&) {}
};

// ---- Answer shapes: a command's output cells and the value made of them -------
//
// Each shape names the run of kinds its cells take in the C declaration
// (Pattern), keeps the cells of one call (Cells: a pointer to each by place,
// the library's copies given back however the call ends) and makes the
// JavaScript value of an answer (ValueOf; empty with a RangeError pending when
// V8 cannot hold it).

// One value: (char **value, size_t *length), a string or a Buffer.
struct OneValue {
  using Pattern = std::tuple<CharPP, SizeP>;
  struct Cells {
    char* value = nullptr;
    size_t length = 0;
    Cells() = default;
    Cells(const Cells&) = delete;
    Cells& operator=(const Cells&) = delete;
    ~Cells() { Free(); }
    void Free() {
      if (value) kl_free_php_reply_p(&value);
    }
    template <size_t K>
    auto At() {
      if constexpr (K == 0) {
        return &value;
      } else {
        return &length;
      }
    }
  };
  static v8::MaybeLocal<v8::Value> ValueOf(v8::Isolate* isolate, const Cells& cells, bool as_buffer);
};

// Several values: (char ***values, size_t *count, size_t **lengths), an array
// of strings or Buffers (null for a missing element).
struct ManyValues {
  using Pattern = std::tuple<CharPPP, SizeP, SizePP>;
  struct Cells {
    char** values = nullptr;
    size_t count = 0;
    size_t* lengths = nullptr;
    Cells() = default;
    Cells(const Cells&) = delete;
    Cells& operator=(const Cells&) = delete;
    ~Cells() { Free(); }
    // The count the library stored: 0 for none (SIZE_MAX) or without an array.
    size_t Count() const { return values && count != SIZE_MAX ? count : 0; }
    void Free() {
      if (values) kl_free_php_reply_pp(&values, static_cast<unsigned>(Count()));
      if (lengths) kl_free_php_reply_p(reinterpret_cast<char**>(&lengths));
      count = 0;
    }
    template <size_t K>
    auto At() {
      if constexpr (K == 0) {
        return &values;
      } else if constexpr (K == 1) {
        return &count;
      } else {
        return &lengths;
      }
    }
  };
  static v8::MaybeLocal<v8::Value> ValueOf(v8::Isolate* isolate, const Cells& cells, bool as_buffer);
};

// A count through an int * or unsigned int * cell: a Number.
template <class Kind>
struct Count {
  using Pattern = std::tuple<Kind>;
  struct Cells {
    std::remove_pointer_t<typename Kind::c_type> n = 0;
    void Free() {}
    template <size_t K>
    auto At() {
      return &n;
    }
  };
  static v8::MaybeLocal<v8::Value> ValueOf(v8::Isolate* isolate, const Cells& cells, bool) {
    return v8::Number::New(isolate, static_cast<double>(cells.n));
  }
};

// The failure record of a call that did not simply succeed: { code, value,
// kind, server, text }, without a prototype.
v8::Local<v8::Value> FailedAnswer(v8::Isolate* isolate, kl_return_t code, v8::Local<v8::Value> value,
                                  const CallFailureText& failure);

// The answer of a finished call (see the top of this file), the cells given
// back; empty with an exception pending when the value cannot be made.
template <class Shape>
v8::MaybeLocal<v8::Value> AnswerOf(v8::Isolate* isolate, kl_return_t code, typename Shape::Cells& cells,
                                   bool as_buffer, const CallFailureText& failure) {
  const kl_return_t result = static_cast<kl_return_t>(code & ~KL_DIRTY);
  if (result == KL_NOTFOUND) {
    cells.Free();
    return v8::Null(isolate);
  }
  v8::Local<v8::Value> value;
  const bool made = Shape::ValueOf(isolate, cells, as_buffer).ToLocal(&value);
  cells.Free();
  if (!made) return {};
  if (code == KL_SUCCESS) return value;
  return FailedAnswer(isolate, code, value, failure);
}

// ---- Where a shape's cells are in a command's kinds ---------------------------------

template <class K>
inline constexpr bool kIsPointerKind = false;
template <class T, KlrtTypeIndex Desc, FixedString Text>
inline constexpr bool kIsPointerKind<PtrArg<T, Desc, Text>> = true;

inline constexpr size_t kNoCells = static_cast<size_t>(-1);

// Where kind T stands among Kinds: one flag per place, and one more.
template <class T, class... Kinds>
constexpr std::array<bool, sizeof...(Kinds) + 1> PlacesOf() {
  return {std::is_same_v<Kinds, T>..., false};
}

// The place of the one run of Pattern's kinds among Kinds, when the first kind
// is the client and every other pointer is the client or a per-server result
// cell the caller passes (so that the answer drops no output); else kNoCells.
template <class Pattern, class... Kinds, size_t... P>
constexpr size_t CellsAt(std::index_sequence<P...>) {
  constexpr size_t n = sizeof...(Kinds);
  constexpr size_t m = sizeof...(P);
  constexpr std::array<std::array<bool, n + 1>, m> places = {PlacesOf<std::tuple_element_t<P, Pattern>, Kinds...>()...};
  constexpr bool pointer[] = {kIsPointerKind<Kinds>..., false};
  constexpr bool passed_on[] = {(std::is_same_v<Kinds, Client> || std::is_same_v<Kinds, RetPP>)..., false};
  if (!std::is_same_v<std::tuple_element_t<0, std::tuple<Kinds...>>, Client>) return kNoCells;
  size_t at = kNoCells;
  for (size_t i = 0; i + m <= n; ++i) {
    bool here = true;
    for (size_t p = 0; p < m; ++p) here = here && places[p][i + p];
    if (!here) continue;
    if (at != kNoCells) return kNoCells;  // twice: not one answer
    at = i;
  }
  if (at == kNoCells) return kNoCells;
  for (size_t i = 0; i < n; ++i)
    if (pointer[i] && !passed_on[i] && (i < at || i >= at + m)) return kNoCells;
  return at;
}

// The place of Shape's cells among Kinds, or kNoCells.
template <class Shape, class... Kinds>
constexpr size_t ShapeAt() {
  constexpr size_t m = std::tuple_size_v<typename Shape::Pattern>;
  if constexpr (sizeof...(Kinds) < m + 1) {
    return kNoCells;
  } else {
    return CellsAt<typename Shape::Pattern, Kinds...>(std::make_index_sequence<m>{});
  }
}

// The shape of a command's answer: the first whose cells it has, or void.
template <class... Kinds>
struct ShapeOf {
  template <class Shape>
  static constexpr bool kHas = ShapeAt<Shape, Kinds...>() != kNoCells;
  using type = std::conditional_t<
      kHas<OneValue>, OneValue,
      std::conditional_t<kHas<ManyValues>, ManyValues,
                         std::conditional_t<kHas<Count<IntP>>, Count<IntP>,
                                            std::conditional_t<kHas<Count<UIntP>>, Count<UIntP>, void>>>>;
};

// The JavaScript arguments: the kinds without the M cells at At, then AsBuffer.
template <FixedString Name, size_t At, size_t M, class Tuple, size_t... J>
auto AnsweredArgumentsOf(std::index_sequence<J...>)
    -> Arguments<Name, std::tuple_element_t<(J < At ? J : J + M), Tuple>..., AsBuffer>;

template <FixedString Name, auto Fn, class... Kinds>
struct AnsweredCommand {
  using Shape = typename ShapeOf<Kinds...>::type;
  static_assert(!std::is_void_v<Shape>, "an answered command reads one value, several values or a count");
  static_assert(Spelled<Fn, RCode, Kinds...>::value);
  using Cells = typename Shape::Cells;
  static constexpr size_t kAt = ShapeAt<Shape, Kinds...>();
  static constexpr size_t kCells = std::tuple_size_v<typename Shape::Pattern>;
  using Kinds_ = std::tuple<Kinds...>;
  using Args = decltype(AnsweredArgumentsOf<Name, kAt, kCells, Kinds_>(
      std::make_index_sequence<sizeof...(Kinds) - kCells>{}));
  using Slots = typename Args::Slots;
  static constexpr size_t kFlag = sizeof...(Kinds) - kCells;  // the AsBuffer slot

  static kl_client* ClientOf(const Slots& slots) { return Client::get(std::get<0>(slots)); }

  // Fn with the converted arguments, the cells at their place.
  static kl_return_t Invoke(const Slots& slots, Cells& cells) {
    return InvokeWith(slots, cells, std::make_index_sequence<sizeof...(Kinds)>{});
  }

  static v8::MaybeLocal<v8::Value> Answer(v8::Isolate* isolate, kl_return_t code, Cells& cells, const Slots& slots,
                                          const CallFailureText& failure) {
    return AnswerOf<Shape>(isolate, code, cells, std::get<kFlag>(slots).on, failure);
  }

 private:
  template <size_t... J>
  static kl_return_t InvokeWith(const Slots& slots, Cells& cells, std::index_sequence<J...>) {
    return Fn(ArgumentAt<J>(slots, cells)...);
  }
  template <size_t J>
  static auto ArgumentAt(const Slots& slots, Cells& cells) {
    if constexpr (J >= kAt && J < kAt + kCells) {
      return cells.template At<J - kAt>();
    } else {
      using Kind = std::tuple_element_t<J, Kinds_>;
      return Kind::get(std::get<(J < kAt ? J : J - kCells)>(slots));
    }
  }
};

// The synchronous form: converts, calls once, returns the answer.
template <FixedString Name, auto Fn, class... Kinds>
struct AnsweredWrapper {
  using Command = AnsweredCommand<Name, Fn, Kinds...>;

  static void Call(const v8::FunctionCallbackInfo<v8::Value>& info) {
    typename Command::Slots slots{};
    if (!Command::Args::Convert(info, slots)) [[unlikely]] {
      return;
    }
    typename Command::Cells cells;
    const kl_return_t code = Command::Invoke(slots, cells);
    Command::Args::Release(slots);
    CallFailureText failure;
    if (code != KL_SUCCESS) failure.ReadFrom(Command::ClientOf(slots));
    v8::Local<v8::Value> answer;
    if (Command::Answer(info.GetIsolate(), code, cells, slots, failure).ToLocal(&answer)) {
      info.GetReturnValue().Set(answer);
    }
  }
};

// The pipelined form: converts on this thread, runs on the pipeline's, and
// is settled with the answer (or the RangeError of a value too large for a
// string).
template <FixedString Name, auto Fn, class... Kinds>
struct PipelinedAnsweredWrapper {
  using Command = AnsweredCommand<Name, Fn, Kinds...>;

  struct Call final : PipelinedCall {
    typename Command::Slots slots{};
    typename Command::Cells cells;
    void Run() override {
      code = Command::Invoke(slots, cells);
      if (code != KL_SUCCESS) NoteFailure();
    }
    void ReleaseArguments() override { Command::Args::Release(slots); }
    v8::Local<v8::Value> Result(v8::Isolate* isolate) override {
      v8::TryCatch caught(isolate);
      v8::Local<v8::Value> answer;
      if (Command::Answer(isolate, code, cells, slots, failure).ToLocal(&answer)) return answer;
      return caught.Exception();
    }
  };

  static void Start(const v8::FunctionCallbackInfo<v8::Value>& info) {
    auto* call = new Call();
    if (!Command::Args::Convert(info, call->slots, 1)) {
      delete call;
      return;
    }
    call->client = Command::ClientOf(call->slots);
    StartPipelinedCall(info, Command::Args::kArity, call);
  }
};

// The answered forms of a table line: an entry only for a command with an
// answer shape; other lines make an empty entry.
template <FixedString Name, auto Fn, class... Kinds>
constexpr FunctionEntry AnsweredEntry(bool pipelined) {
  if constexpr (!std::is_void_v<typename ShapeOf<Kinds...>::type> &&
                std::is_same_v<typename FnTraits<decltype(Fn)>::ret, kl_return_t>) {
    return FunctionEntry{Name.s, pipelined ? &PipelinedAnsweredWrapper<Name, Fn, Kinds...>::Start
                                           : &AnsweredWrapper<Name, Fn, Kinds...>::Call};
  } else {
    return FunctionEntry{nullptr, nullptr};
  }
}

}  // namespace keyloom

#define KL_ANSWERED_CMD_AS(NAME, FN, ...) ::keyloom::AnsweredEntry<#NAME, &FN, __VA_ARGS__>(false)
#define KL_PIPELINED_ANSWERED_CMD_AS(NAME, FN, ...) ::keyloom::AnsweredEntry<#NAME, &FN, __VA_ARGS__>(true)
