// Hand-written sensitivity natives: the output states come as a Java long
// array, and the constants go back in a Java double array.
#include <cstdint>
#include <vector>

#include "jni/jni_util.h"
#include "natives.h"

using namespace kelva;
using namespace kelva::jni;

namespace {

// Stores the four constants of one entry in the Java array (at least four
// elements; "usage" otherwise).
template <class Get>
jint constants_to_java(JNIEnv* env, jdoubleArray jconstants, Get&& get) {
  if (jconstants == nullptr || env->GetArrayLength(jconstants) < 4)
    return fail_with(K_ERROR_USAGE, jint{1});
  double constants[4] = {};
  const k_status_t status = get(constants);
  if (status != 0) return status;
  env->SetDoubleArrayRegion(jconstants, 0, 4, constants);
  if (env->ExceptionCheck()) return fail_with(K_ERROR_JNI, jint{1});
  return 0;
}

}  // namespace

extern "C" {

JNIEXPORT jint JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kDomainComputeSensitivityData(
    JNIEnv* env, jclass, jlong jdomain, jlong jnodes, jlongArray jstates) {
  return guard<jint>(1, [&]() -> jint {
    if (jstates == nullptr) return fail_with(K_ERROR_USAGE, jint{1});
    // One state per node of the list; a shorter array is refused here.
    auto nodes = from_jlong<k_node_t*>(jnodes);
    std::size_t count = 0;
    while (nodes != nullptr && nodes[count] != nullptr) ++count;
    const jsize length = env->GetArrayLength(jstates);
    if (static_cast<std::size_t>(length) < count) return fail_with(K_ERROR_USAGE, jint{1});
    std::vector<jlong> states(static_cast<std::size_t>(length));
    env->GetLongArrayRegion(jstates, 0, length, states.data());
    if (env->ExceptionCheck()) return fail_with(K_ERROR_JNI, jint{1});
    std::vector<k_size_t> converted;
    for (jlong s : states) {
      if (s < 0) return fail_with(K_ERROR_USAGE, jint{1});
      converted.push_back(static_cast<k_size_t>(s));
    }
    return k_domain_compute_sensitivity_data(from_jlong<k_domain_t>(jdomain), nodes,
                                             converted.data());
  });
}

JNIEXPORT jint JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kNodeGetSensitivityConstants(
    JNIEnv* env, jclass, jlong jnode, jlong jinput, jdoubleArray jconstants) {
  return guard<jint>(1, [&]() -> jint {
    return constants_to_java(env, jconstants, [&](double* constants) {
      return k_node_get_sensitivity_constants(from_jlong<k_node_t>(jnode),
                                              static_cast<k_size_t>(jinput), constants);
    });
  });
}

JNIEXPORT jint JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kNodeGetSensitivityConstants2(
    JNIEnv* env, jclass, jlong jnode, jlong jinput, jlong joutput, jdoubleArray jconstants) {
  return guard<jint>(1, [&]() -> jint {
    return constants_to_java(env, jconstants, [&](double* constants) {
      return k_node_get_sensitivity_constants2(from_jlong<k_node_t>(jnode),
                                               static_cast<k_size_t>(jinput),
                                               static_cast<k_size_t>(joutput), constants);
    });
  });
}

}  // extern "C"
