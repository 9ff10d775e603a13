// Hand-written case-file natives: single cases and data files read with
// errors going to a Java handler, and written.  File names cross as UTF-16.
#include <cstdint>
#include <vector>

#include "jni/callback.h"
#include "jni/jni_util.h"
#include "natives.h"

using namespace kelva;
using namespace kelva::jni;

namespace {

using Parse = k_status_t (*)(k_domain_t, const char*, k_parse_error_handler_t, void*);

// Runs a case parser with the Java handler.  A handler that threw leaves
// its exception for the caller and the code "jni"; the parse has failed
// then (handlers hear of errors) or added nothing (the only warning is of a
// file without cases), so nothing read stays.
jint parse(JNIEnv* env, jlong jdomain, jstring jfile_name, jobject jhandler, Parse parser) {
  return guard<jint>(1, [&]() -> jint {
    const FileName name(env, jfile_name);
    if (name.error() != K_ERROR_NONE) return fail_with(name.error(), jint{1});
    ParseFrame frame{env, jhandler};
    const k_status_t status =
        parser(from_jlong<k_domain_t>(jdomain), name.get(), &report_parse_error, &frame);
    if (env->ExceptionCheck()) return fail_with(K_ERROR_JNI, jint{1});
    return status;
  });
}

}  // namespace

extern "C" {

JNIEXPORT jint JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kDomainParseCase(
    JNIEnv* env, jclass, jlong jdomain, jstring jfile_name, jobject jhandler) {
  return parse(env, jdomain, jfile_name, jhandler, &k_domain_parse_case);
}

JNIEXPORT jint JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kDomainParseCases(
    JNIEnv* env, jclass, jlong jdomain, jstring jfile_name, jobject jhandler) {
  return parse(env, jdomain, jfile_name, jhandler, &k_domain_parse_cases);
}

JNIEXPORT jint JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kDomainSaveCase(
    JNIEnv* env, jclass, jlong jdomain, jstring jfile_name) {
  return guard<jint>(1, [&]() -> jint {
    const FileName name(env, jfile_name);
    if (name.error() != K_ERROR_NONE) return fail_with(name.error(), jint{1});
    return k_domain_save_case(from_jlong<k_domain_t>(jdomain), name.get());
  });
}

JNIEXPORT jint JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kDomainSaveCases(
    JNIEnv* env, jclass, jlong jdomain, jstring jfile_name, jlong jnodes, jlongArray jcases,
    jint jinclude_counts, jstring jseparator, jstring jmissing) {
  return guard<jint>(1, [&]() -> jint {
    const FileName name(env, jfile_name);
    if (name.error() != K_ERROR_NONE) return fail_with(name.error(), jint{1});
    Utf separator(env, jseparator);
    Utf missing(env, jmissing);
    if (!separator.ok() || !missing.ok()) return fail_with(K_ERROR_JNI, jint{1});
    // The indexes, ended by -1 as the engine takes them; a negative index
    // from Java would end the list early, so it is refused here.
    std::vector<int64_t> cases;
    if (jcases != nullptr) {
      const jsize length = env->GetArrayLength(jcases);
      cases.resize(static_cast<std::size_t>(length) + 1, -1);
      env->GetLongArrayRegion(jcases, 0, length, reinterpret_cast<jlong*>(cases.data()));
      if (env->ExceptionCheck()) return fail_with(K_ERROR_JNI, jint{1});
      for (jsize i = 0; i < length; ++i)
        if (cases[static_cast<std::size_t>(i)] < 0) return fail_with(K_ERROR_USAGE, jint{1});
    }
    return k_domain_save_cases(from_jlong<k_domain_t>(jdomain), name.get(),
                               from_jlong<k_node_t*>(jnodes),
                               jcases != nullptr ? cases.data() : nullptr, jinclude_counts,
                               separator.get(), missing.get());
  });
}

}  // extern "C"
