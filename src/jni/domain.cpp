// Hand-written domain natives: deletion (the domain dies inside the call),
// node creation with its Java peer, and the log file's UTF-16 name.
#include "capi/peers.h"
#include "jni/jni_util.h"
#include "natives.h"

using namespace kelva;
using namespace kelva::jni;

extern "C" {

JNIEXPORT jint JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kDomainDelete(JNIEnv* env,
                                                                                   jclass,
                                                                                   jlong jdomain) {
  auto domain = from_jlong<k_domain_t>(jdomain);
  // Not an EnvScope: on success the context dies with the domain.
  PeerContext* context = peers::context_of(domain);
  if (context != nullptr) peers::env_slot(*context) = env;
  const k_status_t status = k_domain_delete(domain);
  // A failed delete leaves the domain alive.
  if (status != 0 && context != nullptr) peers::env_slot(*context) = nullptr;
  return status;
}

}  // extern "C"

namespace {

// A node made by `create(domain)` with the Java node `jnode` as its peer.
template <class Create>
jlong new_peered_node(JNIEnv* env, jlong jdomain, jobject jnode, Create create) {
  return guard<jlong>(0, [&]() -> jlong {
    auto domain = from_jlong<k_domain_t>(jdomain);
    PeerContext* context = peers::context_of(domain);
    if (context == nullptr || jnode == nullptr) return fail_with(K_ERROR_USAGE, jlong{0});
    if (!cache_node_field(env, *context, jnode)) return 0;
    GlobalRef peer(env, jnode);
    if (!peer) return fail_with(K_ERROR_NO_MEMORY, jlong{0});
    k_node_t node = nullptr;
    {
      EnvScope scope(env, context);
      node = create(domain);
    }
    if (node == nullptr) return 0;  // the reference is deleted with `peer`
    peers::peer_slot(node) = peer.release();
    return to_jlong(node);
  });
}

}  // namespace

extern "C" {

JNIEXPORT jlong JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kDomainNewNode(
    JNIEnv* env, jclass, jlong jdomain, jint jcategory, jint jkind, jint jsubtype, jobject jnode) {
  return new_peered_node(env, jdomain, jnode, [&](k_domain_t domain) {
    return k_domain_new_node(domain, static_cast<k_category_t>(jcategory),
                             static_cast<k_kind_t>(jkind), static_cast<k_subtype_t>(jsubtype));
  });
}

JNIEXPORT jlong JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kDomainCreateDiscreteNode(
    JNIEnv* env, jclass, jlong jdomain, jint jcategory, jint jsubtype, jlong jstates,
    jobject jnode) {
  return new_peered_node(env, jdomain, jnode, [&](k_domain_t domain) -> k_node_t {
    if (jstates < 0) return fail_with(K_ERROR_USAGE, k_node_t{nullptr});
    return k_domain_create_discrete_node(domain, static_cast<k_category_t>(jcategory),
                                         static_cast<k_subtype_t>(jsubtype),
                                         static_cast<size_t>(jstates));
  });
}

JNIEXPORT jint JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kDomainSetLogFile(
    JNIEnv* env, jclass, jlong jdomain, jstring jfile_name, jint jappend) {
  return guard<jint>(1, [&]() -> jint {
    const FileName name(env, jfile_name);
    if (name.error() != K_ERROR_NONE) return fail_with(name.error(), jint{1});
    return k_domain_set_log_file(from_jlong<k_domain_t>(jdomain), name.get(), jappend);
  });
}

}  // extern "C"
