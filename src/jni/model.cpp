// Hand-written model natives: models get their Java peers here, and the
// text of an expression is parsed with errors going to a Java handler.
#include "capi/peers.h"
#include "jni/callback.h"
#include "jni/jni_util.h"
#include "natives.h"

using namespace kelva;
using namespace kelva::jni;

extern "C" {

JNIEXPORT jlong JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kNodeNewModel(
    JNIEnv* env, jclass, jlong jnode, jlong jnodes, jobject jmodel) {
  return guard<jlong>(0, [&]() -> jlong {
    auto node = from_jlong<k_node_t>(jnode);
    PeerContext* context = peers::context_of(node);
    k_model_t model = nullptr;
    {
      // The node's previous model dies here, and with it its peer.
      EnvScope scope(env, context);
      model = k_node_new_model(node, from_jlong<const k_node_t*>(jnodes));
    }
    if (model == nullptr) return 0;
    if (!attach_model_peer(env, model, jmodel)) {
      // Nobody has seen the new model: it goes again, keeping the code.
      const k_error_t code = k_error_code();
      k_model_delete(model);
      k_error_set(code);
      return 0;
    }
    return to_jlong(model);
  });
}

JNIEXPORT jlong JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kNodeGetModel(
    JNIEnv* env, jclass, jlong jnode, jobject jmodel) {
  k_model_t model = k_node_get_model(from_jlong<k_node_t>(jnode));
  if (model == nullptr) return 0;
  if (!attach_model_peer(env, model, jmodel)) return 0;
  return to_jlong(model);
}

JNIEXPORT jint JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kModelSetExpressionFromString(
    JNIEnv* env, jclass, jlong jmodel, jlong jindex, jstring jtext, jobject jhandler) {
  return guard<jint>(1, [&]() -> jint {
    auto model = from_jlong<k_model_t>(jmodel);
    const auto index = static_cast<k_size_t>(jindex);
    Utf text(env, jtext);
    if (!text.ok()) return fail_with(K_ERROR_JNI, jint{1});
    ParseFrame frame{env, jhandler};
    const k_status_t status =
        k_model_set_expression_from_string(model, index, text.get(), &report_parse_error, &frame);
    if (env->ExceptionCheck()) {
      // The handler threw: nothing parsed may stay (handlers hear only of
      // failed parses, so this is a safeguard), and the exception is left
      // for the Java caller.
      if (status == 0) k_model_set_expression(model, index, nullptr);
      return fail_with(K_ERROR_JNI, jint{1});
    }
    return status;
  });
}

}  // extern "C"
