// Inference natives with extra steps: a marginal table gets its Java peer.
#include <jni.h>

#include "jni/jni_util.h"
#include "kelva/kelva.h"
#include "natives.h"

using kelva::jni::attach_table_peer;
using kelva::jni::from_jlong;
using kelva::jni::to_jlong;

extern "C" {

JNIEXPORT jlong JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kDomainGetMarginal(
    JNIEnv* env, jclass, jlong jdomain, jlong jnodes, jobject jmarginal) {
  k_table_t marginal =
      k_domain_get_marginal(from_jlong<k_domain_t>(jdomain), from_jlong<k_node_t*>(jnodes));
  if (marginal == nullptr) return 0;
  if (!attach_table_peer(env, marginal, jmarginal)) {
    // The new table has no peer yet, and the caller never sees it.
    const k_error_t code = k_error_code();
    k_table_delete(marginal);
    k_error_set(code);
    return 0;
  }
  return to_jlong(marginal);
}

}  // extern "C"
