// Hand-written SAS natives: node and link files, and node entries of the
// older network format, read into a domain, with errors going to a Java
// handler.
#include <unordered_set>

#include "capi/peers.h"
#include "jni/callback.h"
#include "jni/jni_util.h"
#include "natives.h"

using namespace kelva;
using namespace kelva::jni;

namespace {

using Read = k_status_t (*)(k_domain_t, const char*, k_parse_error_handler_t, void*);

// The nodes of a domain.
std::unordered_set<k_node_t> nodes_of(k_domain_t domain) {
  std::unordered_set<k_node_t> result;
  for (k_node_t n = k_domain_get_first_node(domain); n != nullptr; n = k_node_get_next(n))
    result.insert(n);
  return result;
}

jint parse(JNIEnv* env, jlong jdomain, jstring jfile_name, jobject jhandler, Read read,
           bool nodes) {
  return guard<jint>(1, [&]() -> jint {
    const FileName name(env, jfile_name);
    if (name.error() != K_ERROR_NONE) return fail_with(name.error(), jint{1});
    auto domain = from_jlong<k_domain_t>(jdomain);
    EnvScope scope(env, peers::context_of(domain));
    // A failed parse puts the domain back itself.  A handler can also throw
    // on a warning of a parse that then succeeds: the nodes it made are
    // deleted again (they have no Java peers yet).  A link file cannot get
    // that far: warnings come with strings, which it refuses.
    std::unordered_set<k_node_t> before;
    if (nodes && jhandler != nullptr && peers::context_of(domain) != nullptr)
      before = nodes_of(domain);
    ParseFrame frame{env, jhandler};
    const k_status_t status = read(domain, name.get(), &report_parse_error, &frame);
    if (!env->ExceptionCheck()) return status;
    if (status == 0 && nodes)
      for (k_node_t n : nodes_of(domain))
        if (before.count(n) == 0) k_node_delete(n);
    return fail_with(K_ERROR_JNI, jint{1});
  });
}

}  // namespace

extern "C" {

JNIEXPORT jint JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kDomainParseSASNodes(
    JNIEnv* env, jclass, jlong jdomain, jstring jfile_name, jobject jhandler) {
  return parse(env, jdomain, jfile_name, jhandler, &k_domain_parse_sas_nodes, true);
}

JNIEXPORT jint JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kDomainParseSASLinks(
    JNIEnv* env, jclass, jlong jdomain, jstring jfile_name, jobject jhandler) {
  return parse(env, jdomain, jfile_name, jhandler, &k_domain_parse_sas_links, false);
}

JNIEXPORT jint JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kDomainParseSASTable(
    JNIEnv* env, jclass, jlong jdomain, jstring jfile_name, jobject jhandler) {
  return parse(env, jdomain, jfile_name, jhandler, &k_domain_parse_sas_table, false);
}

JNIEXPORT jint JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kDomainParseNodes(
    JNIEnv* env, jclass, jlong jdomain, jstring jfile_name, jobject jhandler) {
  return parse(env, jdomain, jfile_name, jhandler, &k_domain_parse_nodes, true);
}

}  // extern "C"
