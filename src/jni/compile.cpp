// Natives of the junction forest that the generator cannot write: attaching
// the Java objects of trees and cliques.  The forest drops them when it is
// discarded, which zeroes their handle fields.
#include <jni.h>

#include "compile/junction_forest.h"
#include "jni/jni_util.h"
#include "natives.h"

using namespace kelva;
using namespace kelva::jni;

namespace {

JunctionTree* live_tree(jlong handle) noexcept {
  auto* tree = from_jlong<JunctionTree*>(handle);
  return tree != nullptr && tree->is(ObjectTag::junction_tree) ? tree : nullptr;
}

Clique* live_clique(jlong handle) noexcept {
  auto* clique = from_jlong<Clique*>(handle);
  return clique != nullptr && clique->is(ObjectTag::clique) ? clique : nullptr;
}

}  // namespace

JNIEXPORT jint JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kJTAttachPeer(JNIEnv* env, jclass,
                                                                                   jlong jtree,
                                                                                   jobject jpeer) {
  JunctionTree* tree = live_tree(jtree);
  if (tree == nullptr || jpeer == nullptr) return fail_with(K_ERROR_USAGE, jint{1});
  k_error_set(K_ERROR_NONE);
  return attach_peer(env, tree->domain->jni(), PeerField::jt, tree->peer, jpeer, jtree) ? 0 : 1;
}

JNIEXPORT jint JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kCliqueAttachPeer(JNIEnv* env, jclass,
                                                                                       jlong jclique,
                                                                                       jobject jpeer) {
  Clique* clique = live_clique(jclique);
  if (clique == nullptr || jpeer == nullptr) return fail_with(K_ERROR_USAGE, jint{1});
  k_error_set(K_ERROR_NONE);
  JniContext& context = clique->tree->domain->jni();
  return attach_peer(env, context, PeerField::clique, clique->peer, jpeer, jclique) ? 0 : 1;
}
