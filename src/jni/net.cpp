// Hand-written NET natives: a domain read from a file or from text, with
// errors going to a Java handler, and written to a file or to text.  File
// names cross as UTF-16 in both directions.
#include <string>

#include "jni/callback.h"
#include "jni/jni_util.h"
#include "natives.h"

using namespace kelva;
using namespace kelva::jni;

extern "C" {

JNIEXPORT jlong JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kNetParseDomain(
    JNIEnv* env, jclass, jstring jfile_name, jobject jhandler) {
  return guard<jlong>(0, [&]() -> jlong {
    const FileName name(env, jfile_name);
    if (name.error() != K_ERROR_NONE) return fail_with(name.error(), jlong{0});
    ParseFrame frame{env, jhandler};
    return parsed_domain(env, k_net_parse_domain(name.get(), &report_parse_error, &frame));
  });
}

JNIEXPORT jlong JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kNetParseDomainString(
    JNIEnv* env, jclass, jstring jtext, jobject jhandler) {
  return guard<jlong>(0, [&]() -> jlong {
    Utf text(env, jtext);
    if (!text.ok()) return fail_with(K_ERROR_JNI, jlong{0});
    ParseFrame frame{env, jhandler};
    return parsed_domain(env, k_net_parse_domain_string(text.get(), &report_parse_error, &frame));
  });
}

JNIEXPORT jint JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kDomainSaveAsNet(
    JNIEnv* env, jclass, jlong jdomain, jstring jfile_name) {
  return guard<jint>(1, [&]() -> jint {
    const FileName name(env, jfile_name);
    if (name.error() != K_ERROR_NONE) return fail_with(name.error(), jint{1});
    return k_domain_save_as_net(from_jlong<k_domain_t>(jdomain), name.get());
  });
}

JNIEXPORT jstring JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kDomainToNetString(
    JNIEnv* env, jclass, jlong jdomain) {
  return take_text(env, k_domain_to_net_string(from_jlong<k_domain_t>(jdomain)));
}

JNIEXPORT jstring JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kDomainGetFileName(
    JNIEnv* env, jclass, jlong jdomain) {
  return guard<jstring>(nullptr, [&]() -> jstring {
    const char* name = k_domain_get_file_name(from_jlong<k_domain_t>(jdomain));
    if (name == nullptr) return nullptr;
    const std::u16string chars = utf8_to_utf16(name);
    jstring s = env->NewString(reinterpret_cast<const jchar*>(chars.data()),
                               static_cast<jsize>(chars.size()));
    if (s == nullptr) k_error_set(K_ERROR_JNI);
    return s;
  });
}

}  // extern "C"
