// Answered calls: a library command called so that the JavaScript value of
// its answer comes back in one crossing: one value (a string or Buffer),
// several values (an array of them), names with values, a count or a score
// (a Number), a text, or true for a command that answers with its code alone.
// The output cells live in the native frame (or in the pipelined call), the
// value is made of them and the library's copies are given back right away:
// no cell, reader or release call reaches JavaScript.
//
// A command is laid out as pieces: plain argument kinds (one JavaScript
// argument, one C argument), input pieces (one JavaScript argument, several C
// arguments: a list of strings or of numbers) and answer pieces (their output
// cells, no JavaScript argument). The JavaScript arguments are the inputs in
// order, then one more: true for Buffers. What comes back (or what the
// Promise of the pipelined form settles with):
//   the value (an array of the values of several answer pieces)   success
//   null                                                           KL_NOTFOUND
//   { code, value or null, kind, server, text }   any other code: the failure
//        record, an object without a prototype (no answer value is one)
// Commands whose only outputs are the cells of one answer shape get their
// form from their table line in library_functions.inc (the pieces are found
// in the kinds); others are declared piece by piece (keyloom_client.cxx), as
// their C kinds alone do not tell an input list from output cells.
#pragma once

#include <node_buffer.h>
#include <v8.h>

#include <array>
#include <vector>
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
// (CKinds), keeps the cells of one call (Cells: a pointer to each by place,
// the library's copies given back however the call ends) and makes the
// JavaScript value of an answer (ValueOf; empty with a RangeError pending when
// V8 cannot hold it).

// One value: (char **value, size_t *length), a string or a Buffer.
struct OneValue {
  using CKinds = std::tuple<CharPP, SizeP>;
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
  using CKinds = std::tuple<CharPPP, SizeP, SizePP>;
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

// Names with values: (size_t *count, char ***names, size_t **name_lengths,
// char ***values, size_t **value_lengths), as [names, values]: the names
// strings, the values strings or Buffers.
struct NamedValues {
  using CKinds = std::tuple<SizeP, CharPPP, SizePP, CharPPP, SizePP>;
  struct Cells {
    size_t count = 0;
    ManyValues::Cells names, values;
    void Free() {
      names.count = values.count = count;
      names.Free();
      values.Free();
      count = 0;
    }
    ~Cells() { Free(); }
    template <size_t K>
    auto At() {
      if constexpr (K == 0) {
        return &count;
      } else if constexpr (K == 1) {
        return &names.values;
      } else if constexpr (K == 2) {
        return &names.lengths;
      } else if constexpr (K == 3) {
        return &values.values;
      } else {
        return &values.lengths;
      }
    }
  };
  static v8::MaybeLocal<v8::Value> ValueOf(v8::Isolate* isolate, const Cells& cells, bool as_buffer);
};

// Values beside an earlier answer of several values, sharing its count:
// (char ***values, size_t **lengths), an array like it (empty when the call
// filled none).
struct ValuesAlongside {
  using CKinds = std::tuple<CharPPP, SizePP>;
  struct Cells {
    ManyValues::Cells values;
    void Share(size_t count) { values.count = count; }
    void Free() { values.Free(); }
    template <size_t K>
    auto At() {
      if constexpr (K == 0) {
        return &values.values;
      } else {
        return &values.lengths;
      }
    }
  };
  static v8::MaybeLocal<v8::Value> ValueOf(v8::Isolate* isolate, const Cells& cells, bool as_buffer) {
    return ManyValues::ValueOf(isolate, cells.values, as_buffer);
  }
};

// Scores beside an earlier answer of several values, sharing its count:
// (double **scores), an array of Numbers (empty when the call filled none).
struct ScoresAlongside {
  using CKinds = std::tuple<DoublePP>;
  struct Cells {
    double* scores = nullptr;
    size_t count = 0;
    Cells() = default;
    Cells(const Cells&) = delete;
    Cells& operator=(const Cells&) = delete;
    ~Cells() { Free(); }
    void Share(size_t n) { count = n; }
    void Free() {
      if (scores) kl_free_php_reply_p(reinterpret_cast<char**>(&scores));
      count = 0;
    }
    template <size_t K>
    auto At() {
      return &scores;
    }
  };
  static v8::MaybeLocal<v8::Value> ValueOf(v8::Isolate* isolate, const Cells& cells, bool as_buffer);
};

// Several values and their count, for a command whose count may come
// without values (SORT with STORE: the stored list's length):
// (char ***values, size_t *count, size_t **lengths) as [values, count].
struct CountedValues {
  using CKinds = ManyValues::CKinds;
  struct Cells : ManyValues::Cells {};
  static v8::MaybeLocal<v8::Value> ValueOf(v8::Isolate* isolate, const Cells& cells, bool as_buffer);
};

// A NULL-terminated array of NUL-terminated texts through a char *** cell
// alone (INFO: one per server), as an array of strings.
struct TextsToNull {
  using CKinds = std::tuple<CharPPP>;
  struct Cells {
    char** texts = nullptr;
    Cells() = default;
    Cells(const Cells&) = delete;
    Cells& operator=(const Cells&) = delete;
    ~Cells() { Free(); }
    size_t Length() const {
      size_t n = 0;
      while (texts && texts[n]) ++n;
      return n;
    }
    void Free() {
      if (texts) kl_free_php_reply_pp(&texts, static_cast<unsigned>(Length()));
    }
    template <size_t K>
    auto At() {
      return &texts;
    }
  };
  static v8::MaybeLocal<v8::Value> ValueOf(v8::Isolate* isolate, const Cells& cells, bool as_buffer);
};

// No output: true. For a declared command whose only answer is its code.
struct Done {
  using CKinds = std::tuple<>;
  struct Cells {
    void Free() {}
  };
  static v8::MaybeLocal<v8::Value> ValueOf(v8::Isolate* isolate, const Cells&, bool) { return v8::True(isolate); }
};

// A NUL-terminated text through a char ** cell alone: a string.
struct Text {
  using CKinds = std::tuple<CharPP>;
  struct Cells : OneValue::Cells {
    template <size_t K>
    auto At() {
      return &value;
    }
  };
  static v8::MaybeLocal<v8::Value> ValueOf(v8::Isolate* isolate, const Cells& cells, bool as_buffer);
};

// A count or a score through an int *, unsigned int * or double * cell: a Number.
template <class Kind>
struct Count {
  using CKinds = std::tuple<Kind>;
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

using Score = Count<DoubleP>;

// The failure record of a call that did not simply succeed: { code, value,
// kind, server, text }, without a prototype.
v8::Local<v8::Value> FailedAnswer(v8::Isolate* isolate, kl_return_t code, v8::Local<v8::Value> value,
                                  const CallFailureText& failure);

// Copies a JavaScript array of strings as UTF-8 into bytes, with a pointer
// to and the length of each; KLRT_TypeError for anything else.
int CopyTextList(v8::Isolate* isolate, v8::Local<v8::Value> value, std::string& bytes, std::vector<char*>& items,
                 std::vector<size_t>& lengths);

// Gives answers that share the count of an earlier one (ValuesAlongside,
// ScoresAlongside) that count, the first answer's that has one.
template <class Cells>
void ShareCount(Cells& cells) {
  size_t count = 0;
  bool found = false;
  std::apply(
      [&](auto&... each) {
        (
            [&] {
              if constexpr (requires { each.Count(); }) {
                if (!found) count = each.Count(), found = true;
              }
            }(),
            ...);
        (
            [&] {
              if constexpr (requires { each.Share(count); }) each.Share(count);
            }(),
            ...);
      },
      cells);
}

// The answer of a finished call (see the top of this file) with the cells of
// its answer pieces, which are given back: the value of its one answer, or
// the array of the values of several ([score, value]). Empty with an
// exception pending when a value cannot be made.
template <class... Answers>
v8::MaybeLocal<v8::Value> AnswerOf(v8::Isolate* isolate, kl_return_t code,
                                   std::tuple<typename Answers::Cells...>& cells, bool as_buffer,
                                   const CallFailureText& failure) {
  ShareCount(cells);
  const auto free_all = [&cells] { std::apply([](auto&... each) { (each.Free(), ...); }, cells); };
  const kl_return_t result = static_cast<kl_return_t>(code & ~KL_DIRTY);
  if (result == KL_NOTFOUND) {
    free_all();
    return v8::Null(isolate);
  }
  v8::Local<v8::Value> values[sizeof...(Answers)];
  bool made = true;
  size_t i = 0;
  std::apply(
      [&](auto&... each) {
        ((made = made && Answers::ValueOf(isolate, each, as_buffer).ToLocal(&values[i++])), ...);
      },
      cells);
  free_all();
  if (!made) return {};
  v8::Local<v8::Value> value = values[0];
  if constexpr (sizeof...(Answers) > 1) value = v8::Array::New(isolate, values, sizeof...(Answers));
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
  constexpr size_t m = std::tuple_size_v<typename Shape::CKinds>;
  if constexpr (sizeof...(Kinds) < m + 1) {
    return kNoCells;
  } else {
    return CellsAt<typename Shape::CKinds, Kinds...>(std::make_index_sequence<m>{});
  }
}

// The shape of a command's answer: the first whose cells it has, or void.
template <class... Kinds>
struct ShapeOf {
  template <class Shape>
  static constexpr bool kHas = ShapeAt<Shape, Kinds...>() != kNoCells;
  using type = std::conditional_t<
      kHas<OneValue>, OneValue,
      std::conditional_t<
          kHas<ManyValues>, ManyValues,
          std::conditional_t<kHas<NamedValues>, NamedValues,
                             std::conditional_t<kHas<Count<IntP>>, Count<IntP>,
                                                std::conditional_t<kHas<Count<UIntP>>, Count<UIntP>, void>>>>>;
};

// ---- Input pieces: one JavaScript argument for several C arguments ------------

// The copies' pointers as the C function takes them (char ** or char const **).
template <class T>
T ItemsAs(std::vector<char*>& items) {
  return static_cast<T>(static_cast<void*>(items.data()));
}

// A JavaScript array of strings as (items, count, lengths), every string
// copied as UTF-8 into one block for the call. Array and Lengths are the C
// kinds of the items and the lengths (char ** or char const **, size_t * or
// size_t const *). The client has checked and converted each item already.
template <class Array, class Lengths>
struct TextList {
  using CKinds = std::tuple<Array, Size, Lengths>;
  static constexpr const char* text = "array of strings";
  struct slot {
    std::string bytes;
    std::vector<char*> items;
    std::vector<size_t> lengths;
  };
  static int convert(v8::Isolate* isolate, v8::Local<v8::Value> value, slot& s) {
    return CopyTextList(isolate, value, s.bytes, s.items, s.lengths);
  }
  template <size_t K>
  static auto CArg(slot& s) {
    if constexpr (K == 0) {
      return ItemsAs<typename Array::c_type>(s.items);
    } else if constexpr (K == 1) {
      return s.items.size();
    } else {
      return static_cast<typename Lengths::c_type>(s.lengths.data());
    }
  }
  static void release(slot& s) { s = slot(); }
};

// A JavaScript array of names and values, alternating ([name, value, name,
// value, ...]), as (names, count, name lengths, values, value lengths), every
// string copied as UTF-8 into one block for the call.
template <class Names, class NameLengths, class Values, class ValueLengths>
struct TextPairs {
  using CKinds = std::tuple<Names, Size, NameLengths, Values, ValueLengths>;
  static constexpr const char* text = "array of names and values";
  struct slot {
    std::string bytes;
    std::vector<char*> items, names, values;
    std::vector<size_t> lengths, name_lengths, value_lengths;
  };
  static int convert(v8::Isolate* isolate, v8::Local<v8::Value> value, slot& s) {
    const int r = CopyTextList(isolate, value, s.bytes, s.items, s.lengths);
    if (r != 0) return r;
    if (s.items.size() % 2 != 0) return KLRT_TypeError;
    const size_t n = s.items.size() / 2;
    s.names.resize(n);
    s.values.resize(n);
    s.name_lengths.resize(n);
    s.value_lengths.resize(n);
    for (size_t i = 0; i < n; ++i) {
      s.names[i] = s.items[2 * i];
      s.name_lengths[i] = s.lengths[2 * i];
      s.values[i] = s.items[2 * i + 1];
      s.value_lengths[i] = s.lengths[2 * i + 1];
    }
    return 0;
  }
  template <size_t K>
  static auto CArg(slot& s) {
    if constexpr (K == 0) {
      return ItemsAs<typename Names::c_type>(s.names);
    } else if constexpr (K == 1) {
      return s.names.size();
    } else if constexpr (K == 2) {
      return static_cast<typename NameLengths::c_type>(s.name_lengths.data());
    } else if constexpr (K == 3) {
      return ItemsAs<typename Values::c_type>(s.values);
    } else {
      return static_cast<typename ValueLengths::c_type>(s.value_lengths.data());
    }
  }
  static void release(slot& s) { s = slot(); }
};

// A JavaScript array of numbers as the C array Kind points to (scores as
// double *, TTLs as size_t const *). The client has checked each number.
template <class Kind>
struct NumberList {
  using CKinds = std::tuple<Kind>;
  using Number = std::remove_const_t<std::remove_pointer_t<typename Kind::c_type>>;
  static constexpr const char* text = "array of numbers";
  struct slot {
    std::vector<Number> numbers;
  };
  static int convert(v8::Isolate* isolate, v8::Local<v8::Value> value, slot& s) {
    if (!value->IsArray()) return KLRT_TypeError;
    v8::Local<v8::Array> array = value.As<v8::Array>();
    v8::Local<v8::Context> context = isolate->GetCurrentContext();
    s.numbers.resize(array->Length());
    for (uint32_t i = 0; i < s.numbers.size(); ++i) {
      v8::Local<v8::Value> item;
      if (!array->Get(context, i).ToLocal(&item) || !item->IsNumber()) return KLRT_TypeError;
      s.numbers[i] = static_cast<Number>(item.As<v8::Number>()->Value());
    }
    return 0;
  }
  template <size_t K>
  static auto CArg(slot& s) {
    return static_cast<typename Kind::c_type>(s.numbers.data());
  }
  static void release(slot& s) { s = slot(); }
};

// ---- A command as pieces ------------------------------------------------------------

template <class P>
concept AnswerPiece = requires { typename P::Cells; };
template <class P>
concept InputPiece = !AnswerPiece<P> && requires { typename P::CKinds; };

// The C kinds a piece stands for: a plain kind stands for itself.
template <class P>
struct CKindsOf {
  using type = std::tuple<P>;
};
template <class P>
  requires requires { typename P::CKinds; }
struct CKindsOf<P> {
  using type = typename P::CKinds;
};

// The pieces that are answers (Answers true), or that take a JavaScript
// argument (false), in order.
template <bool Answers, class... Pieces>
struct PiecesWhere {
  using type = TypeList<>;
};
template <bool Answers, class P, class... Rest>
struct PiecesWhere<Answers, P, Rest...> {
  template <class L>
  struct Prepend;
  template <class... K>
  struct Prepend<TypeList<K...>> {
    using type = std::conditional_t<AnswerPiece<P> == Answers, TypeList<P, K...>, TypeList<K...>>;
  };
  using type = typename Prepend<typename PiecesWhere<Answers, Rest...>::type>::type;
};

// The cells of a command's answers, and the answer they make.
template <class Answers>
struct AnswerCells;
template <class... A>
struct AnswerCells<TypeList<A...>> {
  using type = std::tuple<typename A::Cells...>;
  static v8::MaybeLocal<v8::Value> Answer(v8::Isolate* isolate, kl_return_t code, type& cells, bool as_buffer,
                                          const CallFailureText& failure) {
    return AnswerOf<A...>(isolate, code, cells, as_buffer, failure);
  }
};

template <FixedString Name, class Inputs>
struct ArgumentsOf;
template <FixedString Name, class... K>
struct ArgumentsOf<Name, TypeList<K...>> {
  using type = Arguments<Name, K..., AsBuffer>;
};

// The C kinds of the pieces spell Fn's declaration.
template <auto Fn, class CKinds>
struct SpelledBy;
template <auto Fn, class... K>
struct SpelledBy<Fn, std::tuple<K...>> : Spelled<Fn, RCode, K...> {};

template <FixedString Name, auto Fn, class... Pieces>
struct ComposedCommand {
  static constexpr size_t kPieces = sizeof...(Pieces);
  static constexpr bool kIsAnswer[] = {AnswerPiece<Pieces>...};
  static constexpr size_t kSizes[] = {std::tuple_size_v<typename CKindsOf<Pieces>::type>...};
  static constexpr size_t kAnswers = (size_t{AnswerPiece<Pieces>} + ...);
  static_assert(kAnswers >= 1, "an answered command has an answer piece");
  static_assert(SpelledBy<Fn, decltype(std::tuple_cat(std::declval<typename CKindsOf<Pieces>::type>()...))>::value);

  using Answers = AnswerCells<typename PiecesWhere<true, Pieces...>::type>;
  using Cells = typename Answers::type;
  using Args = typename ArgumentsOf<Name, typename PiecesWhere<false, Pieces...>::type>::type;
  using Slots = typename Args::Slots;
  static constexpr size_t kFlag = kPieces - kAnswers;  // the AsBuffer slot: after every input
  static constexpr size_t kCArgs = (std::tuple_size_v<typename CKindsOf<Pieces>::type> + ...);

  // The piece of C argument j, and j's place in it.
  static constexpr size_t PieceOf(size_t j) {
    size_t p = 0;
    while (j >= kSizes[p]) j -= kSizes[p++];
    return p;
  }
  static constexpr size_t PlaceIn(size_t j) {
    size_t p = 0;
    while (j >= kSizes[p]) j -= kSizes[p++];
    return j;
  }
  // The JavaScript argument (slot) of input piece p, or the cells of answer piece p.
  static constexpr size_t SlotOf(size_t p) {
    size_t slot = 0;
    for (size_t q = 0; q < p; ++q)
      if (kIsAnswer[q] == kIsAnswer[p]) ++slot;
    return slot;
  }

  static kl_client* ClientOf(const Slots& slots) { return Client::get(std::get<0>(slots)); }

  // Fn with the converted arguments, the cells at their place.
  static kl_return_t Invoke(Slots& slots, Cells& cells) {
    return InvokeWith(slots, cells, std::make_index_sequence<kCArgs>{});
  }

  static v8::MaybeLocal<v8::Value> MakeAnswer(v8::Isolate* isolate, kl_return_t code, Cells& cells, const Slots& slots,
                                           const CallFailureText& failure) {
    return Answers::Answer(isolate, code, cells, std::get<kFlag>(slots).on, failure);
  }

 private:
  template <size_t... J>
  static kl_return_t InvokeWith(Slots& slots, Cells& cells, std::index_sequence<J...>) {
    return Fn(ArgumentAt<J>(slots, cells)...);
  }
  template <size_t J>
  static auto ArgumentAt(Slots& slots, Cells& cells) {
    constexpr size_t p = PieceOf(J);
    constexpr size_t k = PlaceIn(J);
    using P = std::tuple_element_t<p, std::tuple<Pieces...>>;
    if constexpr (AnswerPiece<P>) {
      return std::get<SlotOf(p)>(cells).template At<k>();
    } else if constexpr (InputPiece<P>) {
      return P::template CArg<k>(std::get<SlotOf(p)>(slots));
    } else {
      return P::get(std::get<SlotOf(p)>(slots));
    }
  }
};

// The command of a table line whose outputs are the cells of one answer
// shape: its kinds before the cells, the shape, its kinds after them.
template <FixedString Name, auto Fn, class Shape, size_t At, class Tuple, size_t... B, size_t... A>
auto ComposedOf(std::index_sequence<B...>, std::index_sequence<A...>)
    -> ComposedCommand<Name, Fn, std::tuple_element_t<B, Tuple>..., Shape,
                       std::tuple_element_t<At + std::tuple_size_v<typename Shape::CKinds> + A, Tuple>...>;

template <FixedString Name, auto Fn, class... Kinds>
using AnsweredCommand = decltype(ComposedOf<Name, Fn, typename ShapeOf<Kinds...>::type, ShapeAt<typename ShapeOf<Kinds...>::type, Kinds...>(), std::tuple<Kinds...>>(
    std::make_index_sequence<ShapeAt<typename ShapeOf<Kinds...>::type, Kinds...>()>{},
    std::make_index_sequence<sizeof...(Kinds) - ShapeAt<typename ShapeOf<Kinds...>::type, Kinds...>() -
                             std::tuple_size_v<typename ShapeOf<Kinds...>::type::CKinds>>{}));

// The synchronous form: converts, calls once, returns the answer.
template <class Command>
struct AnsweredWrapper {
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
    if (Command::MakeAnswer(info.GetIsolate(), code, cells, slots, failure).ToLocal(&answer)) {
      info.GetReturnValue().Set(answer);
    }
  }
};

// The pipelined form: converts on this thread, runs on the pipeline's, and
// is settled with the answer (or the RangeError of a value too large for a
// string).
template <class Command>
struct PipelinedAnsweredWrapper {
  struct Call final : PipelinedCall {
    typename Command::Slots slots{};
    typename Command::Cells cells;
    // A call dropped before it was settled: the answers that share a count free with it.
    ~Call() override { ShareCount(cells); }
    void Run() override {
      code = Command::Invoke(slots, cells);
      if (code != KL_SUCCESS) NoteFailure();
    }
    void ReleaseArguments() override { Command::Args::Release(slots); }
    v8::Local<v8::Value> Result(v8::Isolate* isolate) override {
      v8::TryCatch caught(isolate);
      v8::Local<v8::Value> answer;
      if (Command::MakeAnswer(isolate, code, cells, slots, failure).ToLocal(&answer)) return answer;
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

template <class Command>
constexpr FunctionEntry AnsweredEntryOf(const char* name, bool pipelined) {
  return FunctionEntry{name, pipelined ? &PipelinedAnsweredWrapper<Command>::Start : &AnsweredWrapper<Command>::Call};
}

// The answered forms of a table line: an entry only for a command with an
// answer shape; other lines make an empty entry.
template <FixedString Name, auto Fn, class... Kinds>
constexpr FunctionEntry AnsweredEntry(bool pipelined) {
  if constexpr (!std::is_void_v<typename ShapeOf<Kinds...>::type> &&
                std::is_same_v<typename FnTraits<decltype(Fn)>::ret, kl_return_t>) {
    return AnsweredEntryOf<AnsweredCommand<Name, Fn, Kinds...>>(Name.s, pipelined);
  } else {
    return FunctionEntry{nullptr, nullptr};
  }
}

}  // namespace keyloom

#define KL_ANSWERED_CMD_AS(NAME, FN, ...) ::keyloom::AnsweredEntry<#NAME, &FN, __VA_ARGS__>(false)
#define KL_PIPELINED_ANSWERED_CMD_AS(NAME, FN, ...) ::keyloom::AnsweredEntry<#NAME, &FN, __VA_ARGS__>(true)
// A command declared piece by piece (its C kinds alone do not say which
// pointers are inputs): KL_COMPOSED(C function, pieces...), made into either
// form by defining KL_COMPOSED as one of these.
#define KL_COMPOSED_ANSWERED(FN, ...) \
  ::keyloom::AnsweredEntryOf<::keyloom::ComposedCommand<#FN, &FN, __VA_ARGS__>>(#FN, false)
#define KL_COMPOSED_PIPELINED(FN, ...) \
  ::keyloom::AnsweredEntryOf<::keyloom::ComposedCommand<#FN, &FN, __VA_ARGS__>>(#FN, true)
