// Hand-written helper native: the decoded text is a new engine text that the
// native frees once Java has its copy.
#include "jni/jni_util.h"
#include "natives.h"

using namespace kelva::jni;

extern "C" {

JNIEXPORT jstring JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kRemoveEscapeSequences(
    JNIEnv* env, jclass, jstring jtext) {
  const Utf text(env, jtext);
  if (!text.ok()) return fail_with(K_ERROR_JNI, jstring{nullptr});
  return take_text(env, k_remove_escape_sequences(text.get()));
}

}  // extern "C"
