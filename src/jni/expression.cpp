// Hand-written expression natives: printing (the engine's text is malloc'ed).
#include <cstdlib>
#include <memory>

#include "jni/jni_util.h"
#include "natives.h"

using namespace kelva;
using namespace kelva::jni;

extern "C" {

JNIEXPORT jstring JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kExpressionToString(
    JNIEnv* env, jclass, jlong jexpression) {
  const std::unique_ptr<char, decltype(&std::free)> text(
      k_expression_to_string(from_jlong<k_expression_t>(jexpression)), &std::free);
  if (text == nullptr) return nullptr;
  jstring s = env->NewStringUTF(text.get());
  if (s == nullptr) k_error_set(K_ERROR_JNI);
  return s;
}

}  // extern "C"
