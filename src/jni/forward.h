// The body of every generated native: argument and result conversions around one C API call.
#pragma once

#include <jni.h>

#include <cstddef>
#include <cstdint>
#include <tuple>
#include <type_traits>

#include "jni/jni_util.h"
#include "kelva/kelva.h"

// The one shape of the generated natives: convert each Java argument to the
// engine function's parameter type, call it, convert the result.  The Java
// types come from the native lists and the C types from the function itself; a
// disagreement fails to compile.

namespace kelva::jni {

/// The Java (JNI) type that carries a C type across the boundary.
template <class C>
struct JavaOf;  // no definition: a C type without a Java form does not compile
/// Handles, lists and back pointers: the address as a long.
template <class T>
struct JavaOf<T*> {
  using type = jlong;
};
/// Texts: Java strings.
template <>
struct JavaOf<const char*> {
  using type = jstring;
};
/// Statuses, truth values, coordinates: int.
template <>
struct JavaOf<int> {
  using type = jint;
};
/// Codes (category, kind, subtype, error ...): int.
template <class E>
requires std::is_enum_v<E>
struct JavaOf<E> {
  using type = jint;
};
/// Sizes (the all-ones size becomes -1) and signed indexes: long.
template <>
struct JavaOf<std::uint64_t> {
  using type = jlong;
};
template <>
struct JavaOf<std::int64_t> {
  using type = jlong;
};
/// Numbers: double.
template <>
struct JavaOf<double> {
  using type = jdouble;
};

template <class C>
using java_t = typename JavaOf<C>::type;

/// The parameter and result types of an engine function.
template <class F>
struct Signature;
template <class R, class... P>
struct Signature<R (*)(P...)> {
  using result = R;
  using params = std::tuple<P...>;
};
template <class R, class... P>
struct Signature<R (*)(P...) noexcept> : Signature<R (*)(P...)> {};

/// One Java argument converted for the engine call; ok() is false when the
/// conversion failed (the JVM then has an exception pending).
template <class C>
class In {
 public:
  In(JNIEnv*, java_t<C> j) noexcept : value_(convert(j)) {}
  bool ok() const noexcept { return true; }
  C get() const noexcept { return value_; }

 private:
  static C convert(java_t<C> j) noexcept {
    if constexpr (std::is_pointer_v<C>) return from_jlong<C>(j);
    else return static_cast<C>(j);
  }
  C value_;
};

/// A text argument: the string's UTF-8 characters, held during the call.
template <>
class In<const char*> {
 public:
  In(JNIEnv* env, jstring j) noexcept : text_(env, j) {}
  bool ok() const noexcept { return text_.ok(); }
  const char* get() const noexcept { return text_.get(); }

 private:
  Utf text_;
};

/// An engine result as its Java form.  A text becomes a new Java string (a
/// null text a null string); when the string cannot be made, the code is
/// "jni" and the result null.
template <class J, class C>
J to_java(JNIEnv* env, C value) noexcept {
  if constexpr (std::is_same_v<C, const char*>) {
    if (value == nullptr) return nullptr;
    jstring s = env->NewStringUTF(value);
    if (s == nullptr) k_error_set(K_ERROR_JNI);
    return s;
  } else if constexpr (std::is_pointer_v<C>) {
    return to_jlong(value);
  } else {
    return static_cast<J>(value);
  }
}

/// Whether a native stores the caller's JNIEnv in the domain for the call.
enum class Bracket { none, env };

namespace detail {

// Converts argument I, then the rest; calls F when all are converted.
template <auto F, Bracket B, class JR, std::size_t I, class JArgs, class... Cs>
JR step(JNIEnv* env, JR failure, const JArgs& jargs, Cs... cs) noexcept {
  using Params = typename Signature<decltype(F)>::params;
  if constexpr (I == std::tuple_size_v<JArgs>) {
    if constexpr (B == Bracket::env) {
      EnvScope scope(env, peers::context_of(std::get<0>(std::forward_as_tuple(cs...))));
      return to_java<JR>(env, F(cs...));
    } else {
      return to_java<JR>(env, F(cs...));
    }
  } else {
    using C = std::tuple_element_t<I, Params>;
    using J = std::tuple_element_t<I, JArgs>;
    static_assert(std::is_same_v<java_t<C>, J>,
                  "native list: a parameter's Java type does not match the engine function");
    In<C> in(env, std::get<I>(jargs));
    if (!in.ok()) return fail_with(K_ERROR_JNI, failure);
    return step<F, B, JR, I + 1>(env, failure, jargs, cs..., in.get());
  }
}

}  // namespace detail

/// The body of a generated native: calls engine function F with the
/// converted arguments and returns its converted result, or `failure` with
/// the code "jni" when a Java text cannot be read.  With Bracket::env the
/// JNIEnv is stored in the domain of the first argument for the call.
template <auto F, Bracket B, class JR, class... J>
JR forward(JNIEnv* env, JR failure, J... jargs) noexcept {
  using Sig = Signature<decltype(F)>;
  static_assert(std::tuple_size_v<typename Sig::params> == sizeof...(J),
                "native list: the parameter count differs from the engine function");
  static_assert(std::is_same_v<java_t<typename Sig::result>, JR>,
                "native list: the return type does not match the engine function");
  return detail::step<F, B, JR, 0>(env, failure, std::tuple<J...>(jargs...));
}

}  // namespace kelva::jni
