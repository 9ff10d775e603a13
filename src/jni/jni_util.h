// Helpers of the native methods: handle casts, the error guard, RAII holders
// of JNI resources, the JNIEnv scope of a call, and Java peer attachment.
#pragma once

#include <jni.h>

#include <cstddef>
#include <cstdlib>
#include <new>
#include <string>
#include <utility>

#include "capi/peers.h"
#include "jni/unicode.h"
#include "kelva/kelva.h"

// Every JNI resource a native takes is released on every path, and no C++
// exception leaves a native.

namespace kelva::jni {

/// A handle from Java as an engine pointer (via size_t, never a direct cast).
template <class T>
T from_jlong(jlong j) noexcept {
  return reinterpret_cast<T>(static_cast<std::size_t>(j));
}

/// An engine pointer as a Java handle.
template <class T>
jlong to_jlong(T* p) noexcept {
  return static_cast<jlong>(reinterpret_cast<std::size_t>(p));
}

/// Sets the thread's error code and returns `value`: the failure exit of a
/// native that fails before or after its engine call.
template <class R>
R fail_with(k_error_t code, R value) noexcept {
  k_error_set(code);
  return value;
}

/// Runs `body` and turns any C++ exception into the thread's error code
/// ("no_memory" for std::bad_alloc, "error" otherwise) and `failure`.  The
/// C API throws nothing, so only the native's own work can throw here.
template <class R, class F>
R guard(R failure, F&& body) noexcept {
  try {
    return std::forward<F>(body)();
  } catch (const std::bad_alloc&) {
    k_error_set(K_ERROR_NO_MEMORY);
  } catch (...) {
    k_error_set(K_ERROR_ERROR);
  }
  return failure;
}

/// The modified UTF-8 text of a Java string for the duration of a call.  A
/// null string gives a null text; ok() is false when the JVM could not
/// provide the text (an exception is then pending).
class Utf {
 public:
  Utf(JNIEnv* env, jstring jtext) noexcept
      : env_(env),
        jtext_(jtext),
        text_(jtext != nullptr ? env->GetStringUTFChars(jtext, nullptr) : nullptr) {}
  ~Utf() {
    if (text_ != nullptr) env_->ReleaseStringUTFChars(jtext_, text_);
  }
  Utf(const Utf&) = delete;
  Utf& operator=(const Utf&) = delete;

  bool ok() const noexcept { return jtext_ == nullptr || text_ != nullptr; }
  const char* get() const noexcept { return text_; }

 private:
  JNIEnv* env_;
  jstring jtext_;
  const char* text_;
};

/// The UTF-16 characters of a non-null Java string for the duration of a call.
class Utf16 {
 public:
  Utf16(JNIEnv* env, jstring jtext) noexcept
      : env_(env),
        jtext_(jtext),
        length_(env->GetStringLength(jtext)),
        chars_(env->GetStringChars(jtext, nullptr)) {}
  ~Utf16() {
    if (chars_ != nullptr) env_->ReleaseStringChars(jtext_, chars_);
  }
  Utf16(const Utf16&) = delete;
  Utf16& operator=(const Utf16&) = delete;

  bool ok() const noexcept { return chars_ != nullptr; }
  const char16_t* get() const noexcept { return reinterpret_cast<const char16_t*>(chars_); }
  std::size_t length() const noexcept { return static_cast<std::size_t>(length_); }

 private:
  JNIEnv* env_;
  jstring jtext_;
  jsize length_;
  const jchar* chars_;
};

/// A Java file name as the engine takes it: the string's UTF-16 characters
/// as UTF-8 (modified UTF-8 would mangle characters outside the basic
/// plane).  A null string gives a null name.  error() is "jni" when the JVM
/// could not provide the characters and "io" for a name with a NUL
/// character, which no file has (cut there, it could name another file).
/// May throw std::bad_alloc.
class FileName {
 public:
  FileName(JNIEnv* env, jstring jname) {
    if (jname == nullptr) return;
    Utf16 chars(env, jname);
    if (!chars.ok()) {
      error_ = K_ERROR_JNI;
      return;
    }
    name_ = utf16_to_utf8(chars.get(), chars.length());
    if (name_.find('\0') != std::string::npos) error_ = K_ERROR_IO;
    null_ = false;
  }

  k_error_t error() const noexcept { return error_; }
  const char* get() const noexcept { return null_ ? nullptr : name_.c_str(); }

 private:
  std::string name_;
  bool null_ = true;
  k_error_t error_ = K_ERROR_NONE;
};

/// A malloc'ed engine text as a new Java string; the text is freed.  A null
/// text gives a null string; when the string cannot be made, the code is
/// "jni" and the result null.
inline jstring take_text(JNIEnv* env, char* text) noexcept {
  if (text == nullptr) return nullptr;
  jstring s = env->NewStringUTF(text);
  std::free(text);
  if (s == nullptr) k_error_set(K_ERROR_JNI);
  return s;
}

/// The elements of a non-null Java double array for the duration of a call.
/// Changes are copied back only after commit(); otherwise (and always for a
/// read-only use) the array is released with JNI_ABORT.
class DoubleElements {
 public:
  DoubleElements(JNIEnv* env, jdoubleArray jarray) noexcept
      : env_(env),
        jarray_(jarray),
        length_(env->GetArrayLength(jarray)),
        data_(env->GetDoubleArrayElements(jarray, nullptr)) {}
  ~DoubleElements() {
    if (data_ != nullptr)
      env_->ReleaseDoubleArrayElements(jarray_, data_, committed_ ? 0 : JNI_ABORT);
  }
  DoubleElements(const DoubleElements&) = delete;
  DoubleElements& operator=(const DoubleElements&) = delete;

  bool ok() const noexcept { return data_ != nullptr; }
  double* get() const noexcept { return data_; }
  std::size_t length() const noexcept { return static_cast<std::size_t>(length_); }
  /// Copy the elements back to the Java array on release.
  void commit() noexcept { committed_ = true; }

 private:
  JNIEnv* env_;
  jdoubleArray jarray_;
  jsize length_;
  jdouble* data_;
  bool committed_ = false;
};

/// A local reference deleted at the end of the scope.
template <class T>
class LocalRef {
 public:
  LocalRef(JNIEnv* env, T ref) noexcept : env_(env), ref_(ref) {}
  ~LocalRef() {
    if (ref_ != nullptr) env_->DeleteLocalRef(ref_);
  }
  LocalRef(const LocalRef&) = delete;
  LocalRef& operator=(const LocalRef&) = delete;

  T get() const noexcept { return ref_; }

 private:
  JNIEnv* env_;
  T ref_;
};

/// A global reference, deleted at the end of the scope unless released.
class GlobalRef {
 public:
  GlobalRef(JNIEnv* env, jobject obj) noexcept : env_(env), ref_(env->NewGlobalRef(obj)) {}
  ~GlobalRef() {
    if (ref_ != nullptr) env_->DeleteGlobalRef(ref_);
  }
  GlobalRef(const GlobalRef&) = delete;
  GlobalRef& operator=(const GlobalRef&) = delete;

  explicit operator bool() const noexcept { return ref_ != nullptr; }
  /// Hands the reference over to the caller.
  jobject release() noexcept {
    jobject r = ref_;
    ref_ = nullptr;
    return r;
  }

 private:
  JNIEnv* env_;
  jobject ref_;
};

/// Stores the caller's JNIEnv in a domain's context for the scope, so that
/// objects with Java peers that die in the engine call can drop them.  For
/// the body of a class it goes to the class collection and to every class
/// of it, since an edit of one class deletes nodes (output clones, instance
/// nodes) of others.  A null context (an invalid handle, which the engine
/// then refuses) does nothing.
class EnvScope {
 public:
  EnvScope(JNIEnv* env, PeerContext* context) noexcept
      : collection_(context != nullptr ? peers::collection_of(*context) : nullptr),
        slot_(context != nullptr && collection_ == nullptr ? &peers::env_slot(*context) : nullptr) {
    if (collection_ != nullptr) previous_ = peers::set_collection_env(collection_, env);
    if (slot_ != nullptr) previous_ = std::exchange(*slot_, env);
  }
  /// The same for every class of a collection (null: nothing).
  EnvScope(JNIEnv* env, k_class_collection_t collection) noexcept
      : collection_(collection), slot_(nullptr) {
    previous_ = peers::set_collection_env(collection_, env);
  }
  ~EnvScope() {
    // The collection outlives every call but its own deletion (not scoped);
    // classes added during the call get the previous JNIEnv as well.
    if (collection_ != nullptr) peers::set_collection_env(collection_, previous_);
    if (slot_ != nullptr) *slot_ = previous_;
  }
  EnvScope(const EnvScope&) = delete;
  EnvScope& operator=(const EnvScope&) = delete;

 private:
  k_class_collection_t collection_;
  void** slot_;
  void* previous_ = nullptr;
};

/// Looks up and caches the "nodePeer" field identifier and a global
/// reference to the Java node class (from `jnode`, a Java node) on the
/// domain's first node.  False with "jni" or "no_memory" set on failure.
bool cache_node_field(JNIEnv* env, PeerContext& context, jobject jnode) noexcept;

/// Makes `jpeer` the Java peer kept in `peer`, the peer slot of an engine
/// object of the domain with `context`: a no-op when it already is;
/// otherwise an earlier peer is dropped (its handle field set to 0), a
/// global reference to `jpeer` is kept and its handle field (`field`, one of
/// peers::k...Field, its identifier cached in `context`) set to `handle`.  A
/// null `jpeer` attaches nothing.  False with the code set ("jni",
/// "no_memory") on failure.
bool attach_peer(JNIEnv* env, PeerContext& context, int field, void*& peer, jobject jpeer,
                 jlong handle) noexcept;

/// attach_peer for a live node ("nodePeer", which also caches the Java node
/// class in the domain), a live table ("tablePeer") and a live model
/// ("modelPeer").
bool attach_node_peer(JNIEnv* env, k_node_t node, jobject jnode) noexcept;
bool attach_table_peer(JNIEnv* env, k_table_t table, jobject jtable) noexcept;
bool attach_model_peer(JNIEnv* env, k_model_t model, jobject jmodel) noexcept;
/// Hands a table the engine just made for the caller (a marginal) to Java:
/// attaches `jtable` as its peer and returns its handle, or deletes the
/// table (keeping the error code) and returns 0 when that fails or `table`
/// is null.
jlong hand_new_table(JNIEnv* env, k_table_t table, jobject jtable) noexcept;

}  // namespace kelva::jni
