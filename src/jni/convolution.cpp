// Hand-written convolution natives: the engine's array of sums and
// probabilities becomes a Java double array (null on error).
#include <cstdlib>

#include "jni/jni_util.h"
#include "natives.h"

using namespace kelva;
using namespace kelva::jni;

namespace {

// The 2k doubles of `sums` as a Java array; frees them either way.
jdoubleArray to_java(JNIEnv* env, double* sums, k_size_t count) {
  if (sums == nullptr) return nullptr;
  jdoubleArray out = env->NewDoubleArray(static_cast<jsize>(2 * count));
  if (out != nullptr) env->SetDoubleArrayRegion(out, 0, static_cast<jsize>(2 * count), sums);
  std::free(sums);
  if (out == nullptr || env->ExceptionCheck()) return fail_with(K_ERROR_JNI, jdoubleArray{});
  return out;
}

}  // namespace

extern "C" {

JNIEXPORT jdoubleArray JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kDomainGetConvolution(
    JNIEnv* env, jclass, jlong jdomain, jlong jnodes) {
  return guard<jdoubleArray>(nullptr, [&] {
    k_size_t count = 0;
    double* sums = k_domain_get_convolution(from_jlong<k_domain_t>(jdomain),
                                            from_jlong<k_node_t*>(jnodes), &count);
    return to_java(env, sums, count);
  });
}

JNIEXPORT jdoubleArray JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kNodeGetConvolution(
    JNIEnv* env, jclass, jlong jnode, jlong jcopies) {
  return guard<jdoubleArray>(nullptr, [&]() -> jdoubleArray {
    if (jcopies < 0) return fail_with(K_ERROR_USAGE, jdoubleArray{});
    k_size_t count = 0;
    double* sums =
        k_node_get_convolution(from_jlong<k_node_t>(jnode), static_cast<k_size_t>(jcopies), &count);
    return to_java(env, sums, count);
  });
}

}  // extern "C"
