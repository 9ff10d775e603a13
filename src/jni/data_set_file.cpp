// Hand-written data set file natives: a data set read from a file or from
// text with errors going to a Java handler, and written to a file or text.
// The separator comes as a Java int and must be a byte value.
#include "jni/callback.h"
#include "jni/jni_util.h"
#include "natives.h"

using namespace kelva;
using namespace kelva::jni;

namespace {

bool is_byte(jint separator) noexcept { return separator >= 1 && separator <= 255; }

char as_char(jint separator) noexcept {
  return static_cast<char>(static_cast<unsigned char>(separator));
}

// The result of a parse.  When the handler threw (it may have done so on a
// warning of a parse that then succeeded), the data set is discarded and the
// exception is left for the Java caller.
jlong parsed(JNIEnv* env, k_data_set_t data_set) noexcept {
  if (env->ExceptionCheck()) {
    if (data_set != nullptr) k_ds_delete(data_set);
    return fail_with(K_ERROR_JNI, jlong{0});
  }
  return to_jlong(data_set);
}

}  // namespace

extern "C" {

JNIEXPORT jlong JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kParseDataSet(
    JNIEnv* env, jclass, jstring jfile_name, jint separator, jobject jhandler) {
  return guard<jlong>(0, [&]() -> jlong {
    if (!is_byte(separator)) return fail_with(K_ERROR_USAGE, jlong{0});
    const FileName name(env, jfile_name);
    if (name.error() != K_ERROR_NONE) return fail_with(name.error(), jlong{0});
    ParseFrame frame{env, jhandler};
    return parsed(env,
                  k_parse_data_set(name.get(), as_char(separator), &report_parse_error, &frame));
  });
}

JNIEXPORT jlong JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kParseDataSetString(
    JNIEnv* env, jclass, jstring jtext, jint separator, jobject jhandler) {
  return guard<jlong>(0, [&]() -> jlong {
    if (!is_byte(separator)) return fail_with(K_ERROR_USAGE, jlong{0});
    Utf text(env, jtext);
    if (!text.ok()) return fail_with(K_ERROR_JNI, jlong{0});
    ParseFrame frame{env, jhandler};
    return parsed(
        env, k_parse_data_set_string(text.get(), as_char(separator), &report_parse_error, &frame));
  });
}

JNIEXPORT jint JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kDSSave(JNIEnv* env, jclass,
                                                                             jlong jds,
                                                                             jstring jfile_name,
                                                                             jint separator) {
  return guard<jint>(1, [&]() -> jint {
    if (!is_byte(separator)) return fail_with(K_ERROR_USAGE, jint{1});
    const FileName name(env, jfile_name);
    if (name.error() != K_ERROR_NONE) return fail_with(name.error(), jint{1});
    return k_ds_save(from_jlong<k_data_set_t>(jds), name.get(), as_char(separator));
  });
}

JNIEXPORT jstring JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kDSToCSVString(
    JNIEnv* env, jclass, jlong jds, jint separator) {
  if (!is_byte(separator)) return fail_with(K_ERROR_USAGE, static_cast<jstring>(nullptr));
  return take_text(env, k_ds_to_csv_string(from_jlong<k_data_set_t>(jds), as_char(separator)));
}

}  // extern "C"
