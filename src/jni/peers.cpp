// Java peers: the drop function the engine calls, peer attachment, and the
// library's load hook that installs the drop function.
#include "capi/peers.h"

#include <jni.h>

#include "jni/jni_util.h"

namespace kelva::jni {

namespace {

// Zeroes the handle field of a dying object's Java peer and deletes the
// global reference.  Runs inside the engine call, with the JNIEnv stored in
// the domain by the native that made the call.
void drop_java_peer(PeerContext& context, int field, void* ref) {
  auto* env = static_cast<JNIEnv*>(peers::env_slot(context));
  auto obj = static_cast<jobject>(ref);
  if (field != peers::kNoField) {
    auto id = static_cast<jfieldID>(peers::field_id_slot(context, field));
    if (id != nullptr) {
      // SetLongField may not run with an exception pending: set it aside.
      jthrowable pending = env->ExceptionOccurred();
      if (pending != nullptr) env->ExceptionClear();
      env->SetLongField(obj, id, 0);
      if (pending != nullptr) {
        env->Throw(pending);
        env->DeleteLocalRef(pending);
      }
    }
  }
  env->DeleteGlobalRef(obj);
}

}  // namespace

bool cache_node_field(JNIEnv* env, PeerContext& context, jobject jnode) noexcept {
  void*& id = peers::field_id_slot(context, peers::kNodeField);
  if (id != nullptr) return true;
  LocalRef<jclass> cls(env, env->GetObjectClass(jnode));
  void*& cached_class = peers::node_class_slot(context);
  if (cached_class == nullptr) {
    GlobalRef node_class(env, cls.get());
    if (!node_class) return fail_with(K_ERROR_NO_MEMORY, false);
    cached_class = node_class.release();
  }
  id = env->GetFieldID(cls.get(), "nodePeer", "J");
  if (id == nullptr) return fail_with(K_ERROR_JNI, false);
  return true;
}

bool attach_peer(JNIEnv* env, PeerContext& context, int field, void*& peer, jobject jpeer,
                 jlong handle) noexcept {
  // Indexed by the peers::k...Field numbers.
  static const char* const names[peers::kFieldCount] = {"nodePeer", "tablePeer", "cliquePeer",
                                                        "jtPeer", "modelPeer"};
  if (jpeer == nullptr) return true;
  if (peer != nullptr && env->IsSameObject(static_cast<jobject>(peer), jpeer)) return true;
  void*& id = peers::field_id_slot(context, field);
  if (id == nullptr) {
    LocalRef<jclass> cls(env, env->GetObjectClass(jpeer));
    id = env->GetFieldID(cls.get(), names[field], "J");
    if (id == nullptr) return fail_with(K_ERROR_JNI, false);
  }
  GlobalRef ref(env, jpeer);
  if (!ref) return fail_with(K_ERROR_NO_MEMORY, false);
  if (peer != nullptr) {
    EnvScope scope(env, &context);
    peers::drop(context, field, peer);
  }
  peer = ref.release();
  env->SetLongField(jpeer, static_cast<jfieldID>(id), handle);
  return true;
}

bool attach_node_peer(JNIEnv* env, k_node_t node, jobject jnode) noexcept {
  PeerContext& context = *peers::context_of(node);
  if (jnode != nullptr && !cache_node_field(env, context, jnode)) return false;
  return attach_peer(env, context, peers::kNodeField, peers::peer_slot(node), jnode,
                     to_jlong(node));
}

bool attach_table_peer(JNIEnv* env, k_table_t table, jobject jtable) noexcept {
  return attach_peer(env, *peers::context_of(table), peers::kTableField, peers::peer_slot(table),
                     jtable, to_jlong(table));
}

jlong hand_new_table(JNIEnv* env, k_table_t table, jobject jtable) noexcept {
  if (table == nullptr) return 0;
  if (!attach_table_peer(env, table, jtable)) {
    // The new table has no peer yet, and the caller never sees it.
    const k_error_t code = k_error_code();
    k_table_delete(table);
    k_error_set(code);
    return 0;
  }
  return to_jlong(table);
}

bool attach_model_peer(JNIEnv* env, k_model_t model, jobject jmodel) noexcept {
  return attach_peer(env, *peers::context_of(model), peers::kModelField, peers::peer_slot(model),
                     jmodel, to_jlong(model));
}

}  // namespace kelva::jni

extern "C" JNIEXPORT jint JNICALL JNI_OnLoad(JavaVM*, void*) {
  kelva::peers::install_drop(&kelva::jni::drop_java_peer);
  return JNI_VERSION_1_8;
}

extern "C" JNIEXPORT void JNICALL JNI_OnUnload(JavaVM*, void*) {
  kelva::peers::install_drop(nullptr);
}
