// Hand-written EM natives: learning with a Java progress listener called
// after every iteration.
#include <cstdint>

#include "capi/peers.h"
#include "jni/jni_util.h"
#include "natives.h"

using namespace kelva;
using namespace kelva::jni;

namespace {

// What the engine's progress call-back needs for one learning call.
struct ProgressFrame {
  JNIEnv* env;
  jobject listener;
  jmethodID method = nullptr;
};

// Calls listener.iteration(long, double); false (stop) stops learning.  A
// listener that throws stops it too, and its exception is left for the
// Java caller.
int report_iteration(std::uint64_t iteration, double log_likelihood, void* data) noexcept {
  auto& frame = *static_cast<ProgressFrame*>(data);
  JNIEnv* env = frame.env;
  if (env->ExceptionCheck()) return 0;
  if (frame.method == nullptr) {
    LocalRef<jclass> cls(env, env->GetObjectClass(frame.listener));
    frame.method = env->GetMethodID(cls.get(), "iteration", "(JD)Z");
    if (frame.method == nullptr) return 0;  // NoSuchMethodError is pending
  }
  const jboolean go = env->CallBooleanMethod(frame.listener, frame.method,
                                             static_cast<jlong>(iteration), log_likelihood);
  return env->ExceptionCheck() || go == JNI_FALSE ? 0 : 1;
}

}  // namespace

extern "C" {

JNIEXPORT jint JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kDomainLearnTables(
    JNIEnv* env, jclass, jlong jdomain, jobject jprogress) {
  return guard<jint>(1, [&]() -> jint {
    auto domain = from_jlong<k_domain_t>(jdomain);
    PeerContext* context = peers::context_of(domain);
    if (context == nullptr) return fail_with(K_ERROR_USAGE, jint{1});
    EnvScope scope(env, context);
    if (jprogress == nullptr) return k_domain_learn_tables(domain);
    // The listener is the call-back for this call only; whatever call-back
    // the domain had is put back afterwards.
    ProgressFrame frame{env, jprogress};
    k_em_progress_t callback = &report_iteration;
    void* data = &frame;
    peers::exchange_em_progress(domain, callback, data);
    const k_status_t status = k_domain_learn_tables(domain);
    peers::exchange_em_progress(domain, callback, data);
    if (env->ExceptionCheck()) return fail_with(K_ERROR_JNI, jint{1});
    return status;
  });
}

}  // extern "C"
