// Propagation natives with extra steps: a marginal table gets its Java peer.
#include <jni.h>

#include "jni/jni_util.h"
#include "kelva/kelva.h"
#include "natives.h"

using kelva::jni::from_jlong;
using kelva::jni::hand_new_table;

extern "C" {

JNIEXPORT jlong JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kDomainGetMarginal(
    JNIEnv* env, jclass, jlong jdomain, jlong jnodes, jobject jmarginal) {
  k_table_t marginal =
      k_domain_get_marginal(from_jlong<k_domain_t>(jdomain), from_jlong<k_node_t*>(jnodes));
  return hand_new_table(env, marginal, jmarginal);
}

}  // extern "C"
