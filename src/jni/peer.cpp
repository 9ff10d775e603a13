// Java peers: the engine's drop function, peer attachment, the domain behind
// a handle, and the library's load hook.
#include "network/peer.h"

#include <jni.h>

#include "expr/model.h"
#include "jni/jni_util.h"
#include "network/domain.h"
#include "network/node.h"
#include "table/table.h"

namespace kelva::jni {

namespace {

// Zeroes the handle field of a dying object's Java peer and deletes the
// global reference.  Runs inside the engine call, with the JNIEnv stored in
// the domain by the native that made the call.
void drop_java_peer(JniContext& context, const PeerField* field, PeerRef ref) {
  auto* env = static_cast<JNIEnv*>(context.env);
  auto obj = static_cast<jobject>(ref);
  if (field != nullptr) {
    auto id = static_cast<jfieldID>(context.field_ids[static_cast<int>(*field)]);
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

JniContext* context_of(k_domain_t domain) noexcept {
  auto* d = reinterpret_cast<Domain*>(domain);
  return d != nullptr && d->is(ObjectTag::domain) ? &d->jni() : nullptr;
}

JniContext* context_of(k_node_t node) noexcept {
  auto* n = reinterpret_cast<Node*>(node);
  return n != nullptr && n->is(ObjectTag::node) ? &n->domain().jni() : nullptr;
}

JniContext* context_of(k_table_t table) noexcept {
  auto* t = reinterpret_cast<Table*>(table);
  return t != nullptr && t->is(ObjectTag::table) ? &t->domain().jni() : nullptr;
}

JniContext* context_of(k_model_t model) noexcept {
  auto* m = reinterpret_cast<Model*>(model);
  return m != nullptr && m->is(ObjectTag::model) ? &m->owner().domain().jni() : nullptr;
}

bool cache_node_field(JNIEnv* env, JniContext& context, jobject jnode) noexcept {
  void*& id = context.field_ids[static_cast<int>(PeerField::node)];
  if (id != nullptr) return true;
  LocalRef<jclass> cls(env, env->GetObjectClass(jnode));
  if (context.node_class == nullptr) {
    GlobalRef node_class(env, cls.get());
    if (!node_class) return fail_with(K_ERROR_NO_MEMORY, false);
    context.node_class = node_class.release();
  }
  id = env->GetFieldID(cls.get(), "nodePeer", "J");
  if (id == nullptr) return fail_with(K_ERROR_JNI, false);
  return true;
}

bool attach_peer(JNIEnv* env, JniContext& context, PeerField field, PeerRef& peer, jobject jpeer,
                 jlong handle) noexcept {
  static const char* const names[kPeerFieldCount] = {"nodePeer", "tablePeer", "cliquePeer", "jtPeer",
                                                     "modelPeer"};
  if (jpeer == nullptr) return true;
  if (peer != nullptr && env->IsSameObject(static_cast<jobject>(peer), jpeer)) return true;
  void*& id = context.field_ids[static_cast<int>(field)];
  if (id == nullptr) {
    LocalRef<jclass> cls(env, env->GetObjectClass(jpeer));
    id = env->GetFieldID(cls.get(), names[static_cast<int>(field)], "J");
    if (id == nullptr) return fail_with(K_ERROR_JNI, false);
  }
  GlobalRef ref(env, jpeer);
  if (!ref) return fail_with(K_ERROR_NO_MEMORY, false);
  if (peer != nullptr) {
    EnvScope scope(env, &context);
    drop_peer(context, field, peer);
  }
  peer = ref.release();
  env->SetLongField(jpeer, static_cast<jfieldID>(id), handle);
  return true;
}

bool attach_node_peer(JNIEnv* env, k_node_t node, jobject jnode) noexcept {
  auto* n = reinterpret_cast<Node*>(node);
  JniContext& context = n->domain().jni();
  if (jnode != nullptr && !cache_node_field(env, context, jnode)) return false;
  return attach_peer(env, context, PeerField::node, n->peer, jnode, to_jlong(n));
}

bool attach_table_peer(JNIEnv* env, k_table_t table, jobject jtable) noexcept {
  auto* t = reinterpret_cast<Table*>(table);
  return attach_peer(env, t->domain().jni(), PeerField::table, t->peer, jtable, to_jlong(t));
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
  auto* m = reinterpret_cast<Model*>(model);
  return attach_peer(env, m->owner().domain().jni(), PeerField::model, m->peer, jmodel, to_jlong(m));
}

}  // namespace kelva::jni

extern "C" JNIEXPORT jint JNICALL JNI_OnLoad(JavaVM*, void*) {
  kelva::install_peer_drop(&kelva::jni::drop_java_peer);
  return JNI_VERSION_1_8;
}

extern "C" JNIEXPORT void JNICALL JNI_OnUnload(JavaVM*, void*) { kelva::install_peer_drop(nullptr); }
