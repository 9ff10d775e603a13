// Call-backs from engine parsers into Java: the parse error handler.
#include "jni/callback.h"

#include <climits>

#include "jni/jni_util.h"

namespace kelva::jni {

void report_parse_error(std::uint64_t position, const char* message, void* data) noexcept {
  auto& frame = *static_cast<ParseFrame*>(data);
  JNIEnv* env = frame.env;
  if (frame.handler == nullptr || env->ExceptionCheck() || env->EnsureLocalCapacity(1) != 0) return;
  if (frame.method == nullptr) {
    LocalRef<jclass> cls(env, env->GetObjectClass(frame.handler));
    frame.method = env->GetMethodID(cls.get(), "parseError", "(ILjava/lang/String;)V");
    if (frame.method == nullptr) return;  // NoSuchMethodError is pending
  }
  LocalRef<jstring> text(env, env->NewStringUTF(message));
  if (text.get() == nullptr) return;  // OutOfMemoryError is pending
  // Positions beyond the int range (texts of 2 GiB) are reported as the largest int.
  const jint where =
      position > static_cast<std::uint64_t>(INT_MAX) ? INT_MAX : static_cast<jint>(position);
  env->CallVoidMethod(frame.handler, frame.method, where, text.get());
}

jlong parsed_domain(JNIEnv* env, k_domain_t domain) noexcept {
  if (env->ExceptionCheck()) {
    // No node of a domain just read has a Java peer: deleting it makes no
    // JNI call while the exception is pending.
    if (domain != nullptr) k_domain_delete(domain);
    return fail_with(K_ERROR_JNI, jlong{0});
  }
  return to_jlong(domain);
}

}  // namespace kelva::jni
