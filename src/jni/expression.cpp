// Hand-written expression natives: printing (the engine's text is malloc'ed)
// and parsing, whose errors go to a Java handler.
#include "jni/callback.h"
#include "jni/jni_util.h"
#include "natives.h"

using namespace kelva;
using namespace kelva::jni;

extern "C" {

JNIEXPORT jstring JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kExpressionToString(
    JNIEnv* env, jclass, jlong jexpression) {
  return take_text(env, k_expression_to_string(from_jlong<k_expression_t>(jexpression)));
}

JNIEXPORT jlong JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kStringParseExpression(
    JNIEnv* env, jclass, jstring jtext, jlong jmodel, jobject jhandler) {
  return guard<jlong>(0, [&]() -> jlong {
    Utf text(env, jtext);
    if (!text.ok()) return fail_with(K_ERROR_JNI, jlong{0});
    ParseFrame frame{env, jhandler};
    k_expression_t expression = k_string_parse_expression(text.get(), from_jlong<k_model_t>(jmodel),
                                                          &report_parse_error, &frame);
    if (env->ExceptionCheck()) {
      // The handler threw: the result is discarded and the exception is
      // left for the Java caller.
      if (expression != nullptr) k_expression_delete(expression);
      return fail_with(K_ERROR_JNI, jlong{0});
    }
    return to_jlong(expression);
  });
}

}  // extern "C"
