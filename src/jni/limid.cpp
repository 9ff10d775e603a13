// Influence diagram natives with extra steps: a decision utility table gets
// its Java peer.
#include <jni.h>

#include "jni/jni_util.h"
#include "kelva/kelva.h"
#include "natives.h"

using kelva::jni::from_jlong;
using kelva::jni::hand_new_table;

extern "C" {

JNIEXPORT jlong JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kNodeGetDecisionUtilities(
    JNIEnv* env, jclass, jlong jnode, jobject jtable) {
  k_table_t table = k_node_get_decision_utilities(from_jlong<k_node_t>(jnode));
  return hand_new_table(env, table, jtable);
}

}  // extern "C"
