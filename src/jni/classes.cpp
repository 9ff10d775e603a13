// Hand-written class natives: deleting a collection, whose classes (and the
// Java peers of their nodes) die inside the call, and making a domain a
// class, which discards its junction forest.
#include "capi/peers.h"
#include "jni/jni_util.h"
#include "natives.h"

using namespace kelva;
using namespace kelva::jni;

extern "C" {

JNIEXPORT jint JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kCCDelete(JNIEnv* env, jclass,
                                                                               jlong jcc) {
  auto cc = from_jlong<k_class_collection_t>(jcc);
  // Not an EnvScope: on success the collection dies with its classes.
  peers::set_collection_env(cc, env);
  const k_status_t status = k_cc_delete(cc);
  if (status != 0) peers::set_collection_env(cc, nullptr);
  return status;
}

JNIEXPORT jlong JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kCCAddDomain(
    JNIEnv* env, jclass, jlong jcc, jlong jdomain, jstring jname) {
  return guard<jlong>(0, [&]() -> jlong {
    Utf name(env, jname);
    if (!name.ok()) return fail_with(K_ERROR_JNI, jlong{0});
    auto domain = from_jlong<k_domain_t>(jdomain);
    EnvScope scope(env, peers::context_of(domain));
    return to_jlong(k_cc_add_domain(from_jlong<k_class_collection_t>(jcc), domain, name.get()));
  });
}

}  // extern "C"
