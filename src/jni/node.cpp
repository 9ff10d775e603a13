// Hand-written node natives: state reordering (an array of Java strings),
// Java peers for nodes the engine made, and the node's tables, which get
// their Java peers here.
#include <string>
#include <vector>

#include "capi/peers.h"
#include "jni/jni_util.h"
#include "natives.h"

using namespace kelva;
using namespace kelva::jni;

namespace {

// The table `get` returns for the node, with `jtable` attached as its peer;
// 0 with the code set on failure.
template <class Get>
jlong node_table(JNIEnv* env, jlong jnode, jobject jtable, Get get) noexcept {
  k_table_t table = get(from_jlong<k_node_t>(jnode));
  if (table == nullptr) return 0;
  if (!attach_table_peer(env, table, jtable)) return 0;
  return to_jlong(table);
}

}  // namespace

extern "C" {

JNIEXPORT jint JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kNodeReorderStates(
    JNIEnv* env, jclass, jlong jnode, jobjectArray jorder) {
  return guard<jint>(1, [&]() -> jint {
    auto node = from_jlong<k_node_t>(jnode);
    if (jorder == nullptr) return k_node_reorder_states(node, nullptr);
    // Copies of the labels, so that each element's reference is released
    // before the next is taken.
    const jsize count = env->GetArrayLength(jorder);
    std::vector<std::string> labels;
    labels.reserve(static_cast<std::size_t>(count));
    for (jsize i = 0; i < count; ++i) {
      LocalRef<jstring> element(env, static_cast<jstring>(env->GetObjectArrayElement(jorder, i)));
      if (env->ExceptionCheck()) return fail_with(K_ERROR_JNI, jint{1});
      if (element.get() == nullptr) return fail_with(K_ERROR_USAGE, jint{1});
      Utf label(env, element.get());
      if (!label.ok()) return fail_with(K_ERROR_JNI, jint{1});
      labels.emplace_back(label.get());
    }
    std::vector<const char*> order;
    order.reserve(labels.size() + 1);
    for (const std::string& label : labels) order.push_back(label.c_str());
    order.push_back(nullptr);
    EnvScope scope(env, peers::context_of(node));
    return k_node_reorder_states(node, order.data());
  });
}

JNIEXPORT jint JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kNodeAttachPeer(
    JNIEnv* env, jclass, jlong jnode, jobject jpeer) {
  auto node = from_jlong<k_node_t>(jnode);
  if (peers::context_of(node) == nullptr || jpeer == nullptr)
    return fail_with(K_ERROR_USAGE, jint{1});
  k_error_set(K_ERROR_NONE);
  return attach_node_peer(env, node, jpeer) ? 0 : 1;
}

JNIEXPORT jlong JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kNodeGetTable(
    JNIEnv* env, jclass, jlong jnode, jobject jtable) {
  return node_table(env, jnode, jtable, k_node_get_table);
}

JNIEXPORT jlong JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kNodeGetExperienceTable(
    JNIEnv* env, jclass, jlong jnode, jobject jtable) {
  return node_table(env, jnode, jtable, k_node_get_experience_table);
}

JNIEXPORT jlong JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kNodeGetFadingTable(
    JNIEnv* env, jclass, jlong jnode, jobject jtable) {
  return node_table(env, jnode, jtable, k_node_get_fading_table);
}

}  // extern "C"
