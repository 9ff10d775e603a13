// Hand-written natives of other tools' network files: a domain read from a
// BIF, XMLBIF or UAI file, with errors going to a Java handler.  File names
// cross as UTF-16.
#include "jni/callback.h"
#include "jni/jni_util.h"
#include "natives.h"

using namespace kelva;
using namespace kelva::jni;

namespace {

using ParseFunction = k_domain_t (*)(const char*, k_parse_error_handler_t, void*);

jlong parse_file(JNIEnv* env, jstring jfile_name, jobject jhandler, ParseFunction parse) {
  return guard<jlong>(0, [&]() -> jlong {
    const FileName name(env, jfile_name);
    if (name.error() != K_ERROR_NONE) return fail_with(name.error(), jlong{0});
    ParseFrame frame{env, jhandler};
    return parsed_domain(env, parse(name.get(), &report_parse_error, &frame));
  });
}

}  // namespace

extern "C" {

JNIEXPORT jlong JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kBIFParseDomain(
    JNIEnv* env, jclass, jstring jfile_name, jobject jhandler) {
  return parse_file(env, jfile_name, jhandler, k_bif_parse_domain);
}

JNIEXPORT jlong JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kXMLBIFParseDomain(
    JNIEnv* env, jclass, jstring jfile_name, jobject jhandler) {
  return parse_file(env, jfile_name, jhandler, k_xmlbif_parse_domain);
}

JNIEXPORT jlong JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kUAIParseDomain(
    JNIEnv* env, jclass, jstring jfile_name, jobject jhandler) {
  return parse_file(env, jfile_name, jhandler, k_uai_parse_domain);
}

}  // extern "C"
