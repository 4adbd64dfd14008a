// Answered calls: a library command that reads one value (through a char **
// and a size_t * cell) called so that the JavaScript value itself comes back,
// in one crossing. The cells live in the native frame (or in the pipelined
// call), the value is made a string (UTF-8) or a Buffer and given back to the
// library right away, and no cell, reader or release call reaches
// JavaScript.
//
// The JavaScript arguments are the command's own, without the two cells, then
// one more: true for a Buffer. What comes back (or what the Promise of the
// pipelined form settles with):
//   the value                              the call succeeded
//   null                                   KL_NOTFOUND
//   [code, value or null, failure kind, server, text]   any other code
// The forms are made from the same table lines as the library's exports
// (library_functions.inc), for every command whose only cells are that pair.
#pragma once

#include <node_buffer.h>
#include <v8.h>

#include <climits>
#include <cstddef>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>

#include "keyloom.h"
#include "pipelined_call.h"
#include "runtime/arg_kinds.h"
#include "runtime/wrapper.h"

namespace keyloom {

// The last argument of an answered call: a Buffer (true) or a string.
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

// The value cells of one call, given back to the library however the call ends.
struct ValueCells {
  char* value = nullptr;
  size_t length = 0;
  ValueCells() = default;
  ValueCells(const ValueCells&) = delete;
  ValueCells& operator=(const ValueCells&) = delete;
  ~ValueCells() { Free(); }
  void Free() {
    if (value) kl_free_php_reply_p(&value);
  }
};

// The answer of a finished call, the cells given back; empty with an
// exception pending when the value cannot be made (over V8's string limit).
v8::MaybeLocal<v8::Value> AnswerOf(v8::Isolate* isolate, kl_return_t code, ValueCells& cells, bool as_buffer,
                                   const CallFailureText& failure);

// ---- Where the value cells are in a command's kinds -------------------------------

template <class K>
inline constexpr bool kIsPointerKind = false;
template <class T, KlrtTypeIndex Desc, FixedString Text>
inline constexpr bool kIsPointerKind<PtrArg<T, Desc, Text>> = true;

inline constexpr size_t kNoValueCells = static_cast<size_t>(-1);

// The index of the char ** kind of the command's one (char **, size_t *)
// pair, when every other pointer kind is its client; else kNoValueCells.
template <class... Kinds>
constexpr size_t ValueCellsAt() {
  constexpr size_t n = sizeof...(Kinds);
  constexpr bool charpp[] = {std::is_same_v<Kinds, CharPP>..., false};
  constexpr bool sizep[] = {std::is_same_v<Kinds, SizeP>..., false};
  constexpr bool pointer[] = {kIsPointerKind<Kinds>..., false};
  constexpr bool client[] = {std::is_same_v<Kinds, Client>..., false};
  size_t at = kNoValueCells;
  for (size_t i = 0; i + 1 < n; ++i) {
    if (charpp[i] && sizep[i + 1]) {
      if (at != kNoValueCells) return kNoValueCells;  // two pairs: not one value
      at = i;
    }
  }
  if (at == kNoValueCells || !client[0]) return kNoValueCells;
  for (size_t i = 1; i < n; ++i)
    if (pointer[i] && i != at && i != at + 1) return kNoValueCells;
  return at;
}

// The JavaScript arguments: the kinds without the pair at At, then AsBuffer.
template <FixedString Name, size_t At, class Tuple, size_t... J>
auto AnsweredArgumentsOf(std::index_sequence<J...>)
    -> Arguments<Name, std::tuple_element_t<(J < At ? J : J + 2), Tuple>..., AsBuffer>;

template <FixedString Name, auto Fn, class... Kinds>
struct AnsweredCommand {
  static constexpr size_t kAt = ValueCellsAt<Kinds...>();
  static_assert(kAt != kNoValueCells, "an answered command reads one value through a char ** and a size_t * cell");
  static_assert(Spelled<Fn, RCode, Kinds...>::value);
  using Kinds_ = std::tuple<Kinds...>;
  using Args = decltype(AnsweredArgumentsOf<Name, kAt, Kinds_>(std::make_index_sequence<sizeof...(Kinds) - 2>{}));
  using Slots = typename Args::Slots;
  static constexpr size_t kFlag = sizeof...(Kinds) - 2;  // the AsBuffer slot

  static kl_client* ClientOf(const Slots& slots) { return Client::get(std::get<0>(slots)); }
  static bool AsBufferOf(const Slots& slots) { return std::get<kFlag>(slots).on; }

  // Fn with the converted arguments, the cells at their place.
  static kl_return_t Invoke(const Slots& slots, ValueCells& cells) {
    return InvokeWith(slots, cells, std::make_index_sequence<sizeof...(Kinds)>{});
  }

 private:
  template <size_t... J>
  static kl_return_t InvokeWith(const Slots& slots, ValueCells& cells, std::index_sequence<J...>) {
    return Fn(ArgumentAt<J>(slots, cells)...);
  }
  template <size_t J>
  static auto ArgumentAt(const Slots& slots, ValueCells& cells) {
    if constexpr (J == kAt) {
      return &cells.value;
    } else if constexpr (J == kAt + 1) {
      return &cells.length;
    } else {
      using Kind = std::tuple_element_t<J, Kinds_>;
      return Kind::get(std::get<(J < kAt ? J : J - 2)>(slots));
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
    ValueCells cells;
    const kl_return_t code = Command::Invoke(slots, cells);
    Command::Args::Release(slots);
    CallFailureText failure;
    if (code != KL_SUCCESS) failure.ReadFrom(Command::ClientOf(slots));
    v8::Local<v8::Value> answer;
    if (AnswerOf(info.GetIsolate(), code, cells, Command::AsBufferOf(slots), failure).ToLocal(&answer)) {
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
    ValueCells cells;
    void Run() override {
      code = Command::Invoke(slots, cells);
      if (code != KL_SUCCESS) NoteFailure();
    }
    void ReleaseArguments() override { Command::Args::Release(slots); }
    v8::Local<v8::Value> Result(v8::Isolate* isolate) override {
      v8::TryCatch caught(isolate);
      v8::Local<v8::Value> answer;
      if (AnswerOf(isolate, code, cells, Command::AsBufferOf(slots), failure).ToLocal(&answer)) return answer;
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

// The answered forms of a table line: an entry only for a command that reads
// one value; other lines make an empty entry.
template <FixedString Name, auto Fn, class... Kinds>
constexpr FunctionEntry AnsweredEntry(bool pipelined) {
  if constexpr (ValueCellsAt<Kinds...>() != kNoValueCells && std::is_same_v<typename FnTraits<decltype(Fn)>::ret, kl_return_t>) {
    return FunctionEntry{Name.s, pipelined ? &PipelinedAnsweredWrapper<Name, Fn, Kinds...>::Start
                                           : &AnsweredWrapper<Name, Fn, Kinds...>::Call};
  } else {
    return FunctionEntry{nullptr, nullptr};
  }
}

}  // namespace keyloom

#define KL_ANSWERED_CMD_AS(NAME, FN, ...) ::keyloom::AnsweredEntry<#NAME, &FN, __VA_ARGS__>(false)
#define KL_PIPELINED_ANSWERED_CMD_AS(NAME, FN, ...) ::keyloom::AnsweredEntry<#NAME, &FN, __VA_ARGS__>(true)
