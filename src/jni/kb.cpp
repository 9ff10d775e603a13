// Hand-written KB natives: file names and passwords cross as UTF-16; a KB
// file made in memory comes back as a Java byte array.
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "jni/jni_util.h"
#include "natives.h"

using namespace kelva;
using namespace kelva::jni;

namespace {

// Calls call(file name, password) with the texts of two Java strings (the
// password may be null); an unreadable string gives `failed` with its code.
template <class Result, class Call>
Result with_name_and_password(JNIEnv* env, jstring jfile_name, jstring jpassword, Result failed,
                              Call call) {
  return guard<Result>(failed, [&]() -> Result {
    const FileName name(env, jfile_name);
    if (name.error() != K_ERROR_NONE) return fail_with(name.error(), failed);
    const FileName password(env, jpassword);
    if (password.error() != K_ERROR_NONE) return fail_with(password.error(), failed);
    return call(name.get(), password.get());
  });
}

}  // namespace

extern "C" {

JNIEXPORT jint JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kDomainSaveAsKB(
    JNIEnv* env, jclass, jlong jdomain, jstring jfile_name, jstring jpassword) {
  return with_name_and_password<jint>(
      env, jfile_name, jpassword, jint{1}, [&](const char* name, const char* password) {
        return k_domain_save_as_kb(from_jlong<k_domain_t>(jdomain), name, password);
      });
}

JNIEXPORT jlong JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kKBLoadDomain(
    JNIEnv* env, jclass, jstring jfile_name, jstring jpassword) {
  return with_name_and_password<jlong>(env, jfile_name, jpassword, jlong{0},
                                       [&](const char* name, const char* password) {
                                         return to_jlong(k_kb_load_domain(name, password));
                                       });
}

JNIEXPORT jbyteArray JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kDomainSaveToMemory(
    JNIEnv* env, jclass, jlong jdomain, jstring jpassword) {
  return guard<jbyteArray>(nullptr, [&]() -> jbyteArray {
    const FileName password(env, jpassword);
    if (password.error() != K_ERROR_NONE) return fail_with(password.error(), jbyteArray{nullptr});
    std::size_t size = 0;
    std::unique_ptr<unsigned char, void (*)(void*)> bytes(
        k_domain_save_to_memory(from_jlong<k_domain_t>(jdomain), password.get(), &size),
        &std::free);
    if (bytes == nullptr) return nullptr;
    // A Java array holds fewer than 2^31 bytes.
    if (size > static_cast<std::size_t>(INT32_MAX))
      return fail_with(K_ERROR_NO_MEMORY, jbyteArray{nullptr});
    jbyteArray array = env->NewByteArray(static_cast<jsize>(size));
    if (array == nullptr) return fail_with(K_ERROR_NO_MEMORY, jbyteArray{nullptr});
    env->SetByteArrayRegion(array, 0, static_cast<jsize>(size),
                            reinterpret_cast<const jbyte*>(bytes.get()));
    return array;
  });
}

JNIEXPORT jint JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kCCSaveAsKB(
    JNIEnv* env, jclass, jlong jcc, jstring jfile_name, jstring jpassword) {
  return with_name_and_password<jint>(
      env, jfile_name, jpassword, jint{1}, [&](const char* name, const char* password) {
        return k_cc_save_as_kb(from_jlong<k_class_collection_t>(jcc), name, password);
      });
}

JNIEXPORT jlong JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kKBLoadClassCollection(
    JNIEnv* env, jclass, jstring jfile_name, jstring jpassword) {
  return with_name_and_password<jlong>(
      env, jfile_name, jpassword, jlong{0}, [&](const char* name, const char* password) {
        return to_jlong(k_kb_load_class_collection(name, password));
      });
}

}  // extern "C"
