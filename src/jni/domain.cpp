// Hand-written domain natives: deletion (the domain dies inside the call),
// node creation with its Java peer, and the log file's UTF-16 name.
#include <string>

#include "jni/jni_util.h"
#include "model/node.h"
#include "natives.h"
#include "platform/file.h"

using namespace kelva;
using namespace kelva::jni;

namespace {

// Looks up and caches the "nodePeer" field and the node class on the first
// node of a domain.  False with "jni" or "no_memory" set on failure.
bool cache_node_field(JNIEnv* env, JniContext& context, jobject jnode) {
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

}  // namespace

extern "C" {

JNIEXPORT jint JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kDomainDelete(JNIEnv* env, jclass,
                                                                                   jlong jdomain) {
  auto domain = from_jlong<k_domain_t>(jdomain);
  // Not an EnvScope: on success the context dies with the domain.
  JniContext* context = context_of(domain);
  if (context != nullptr) context->env = env;
  const k_status_t status = k_domain_delete(domain);
  if (status != 0 && context != nullptr) context->env = nullptr;  // a failed delete leaves it alive
  return status;
}

JNIEXPORT jlong JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kDomainNewNode(
    JNIEnv* env, jclass, jlong jdomain, jint jcategory, jint jkind, jint jsubtype, jobject jnode) {
  return guard<jlong>(0, [&]() -> jlong {
    auto domain = from_jlong<k_domain_t>(jdomain);
    JniContext* context = context_of(domain);
    if (context == nullptr || jnode == nullptr) return fail_with(K_ERROR_USAGE, jlong{0});
    if (!cache_node_field(env, *context, jnode)) return 0;
    GlobalRef peer(env, jnode);
    if (!peer) return fail_with(K_ERROR_NO_MEMORY, jlong{0});
    k_node_t node = nullptr;
    {
      EnvScope scope(env, context);
      node = k_domain_new_node(domain, static_cast<k_category_t>(jcategory), static_cast<k_kind_t>(jkind),
                               static_cast<k_subtype_t>(jsubtype));
    }
    if (node == nullptr) return 0;  // the reference is deleted with `peer`
    reinterpret_cast<Node*>(node)->peer = peer.release();
    return to_jlong(node);
  });
}

JNIEXPORT jint JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kDomainSetLogFile(JNIEnv* env, jclass,
                                                                                       jlong jdomain,
                                                                                       jstring jfile_name,
                                                                                       jint jappend) {
  return guard<jint>(1, [&]() -> jint {
    auto domain = from_jlong<k_domain_t>(jdomain);
    if (jfile_name == nullptr) return k_domain_set_log_file(domain, nullptr, jappend);
    // File names go through UTF-16: modified UTF-8 would mangle characters
    // outside the basic plane.
    Utf16 name(env, jfile_name);
    if (!name.ok()) return fail_with(K_ERROR_JNI, jint{1});
    const std::string file_name = platform::utf16_to_utf8(name.get(), name.length());
    return k_domain_set_log_file(domain, file_name.c_str(), jappend);
  });
}

}  // extern "C"
