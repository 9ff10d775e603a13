// Natives of the junction forest that the generator cannot write: attaching
// the Java objects of trees and cliques.  The forest drops them when it is
// discarded, which zeroes their handle fields.
#include <jni.h>

#include "capi/peers.h"
#include "jni/jni_util.h"
#include "natives.h"

using namespace kelva;
using namespace kelva::jni;

JNIEXPORT jint JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kJTAttachPeer(JNIEnv* env,
                                                                                   jclass,
                                                                                   jlong jtree,
                                                                                   jobject jpeer) {
  auto tree = from_jlong<k_junction_tree_t>(jtree);
  PeerContext* context = peers::context_of(tree);
  if (context == nullptr || jpeer == nullptr) return fail_with(K_ERROR_USAGE, jint{1});
  k_error_set(K_ERROR_NONE);
  return attach_peer(env, *context, peers::kJunctionTreeField, peers::peer_slot(tree), jpeer, jtree)
             ? 0
             : 1;
}

JNIEXPORT jint JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kCliqueAttachPeer(
    JNIEnv* env, jclass, jlong jclique, jobject jpeer) {
  auto clique = from_jlong<k_clique_t>(jclique);
  PeerContext* context = peers::context_of(clique);
  if (context == nullptr || jpeer == nullptr) return fail_with(K_ERROR_USAGE, jint{1});
  k_error_set(K_ERROR_NONE);
  return attach_peer(env, *context, peers::kCliqueField, peers::peer_slot(clique), jpeer, jclique)
             ? 0
             : 1;
}
