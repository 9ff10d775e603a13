// Hand-written class-file natives: classes read from a file or from text
// into a collection, a missing class asked of a Java loader, and the
// collection written to a file or to text.
#include <cstddef>

#include "jni/callback.h"
#include "jni/jni_util.h"
#include "natives.h"

using namespace kelva;
using namespace kelva::jni;

namespace {

// What the class-loading call-back needs: the caller's JNIEnv, the Java
// collection and loader (may be null), and the loader's "insertClass"
// method, looked up on first use.
struct LoaderFrame {
  JNIEnv* env;
  jobject collection;
  jobject loader;
  jmethodID method = nullptr;
};

// The engine's class loader for a LoaderFrame: calls
// loader.insertClass(String name, ClassCollection collection).  A failure
// (no loader, a pending exception, a missing method, a loader that threw)
// is reported as such; the reader then checks whether the class came.
int insert_class(const char* name, k_class_collection_t, void* data) noexcept {
  auto& frame = *static_cast<LoaderFrame*>(data);
  JNIEnv* env = frame.env;
  if (frame.loader == nullptr || env->ExceptionCheck() || env->EnsureLocalCapacity(1) != 0)
    return 1;
  if (frame.method == nullptr) {
    LocalRef<jclass> cls(env, env->GetObjectClass(frame.loader));
    frame.method = env->GetMethodID(cls.get(), "insertClass",
                                    "(Ljava/lang/String;LCOM/kelva/KAPI/ClassCollection;)V");
    if (frame.method == nullptr) return 1;  // NoSuchMethodError is pending
  }
  LocalRef<jstring> text(env, env->NewStringUTF(name));
  if (text.get() == nullptr) return 1;  // OutOfMemoryError is pending
  env->CallVoidMethod(frame.loader, frame.method, text.get(), frame.collection);
  return env->ExceptionCheck() ? 1 : 0;
}

// Runs `parse` (the engine reader over the frames) on the collection with
// the caller's JNIEnv in every class.  When a Java call-back threw, the
// classes the parse added are deleted again (newest first), the code is
// "jni" and the exception is left for the Java caller.
template <class Parse>
jint parse_classes(JNIEnv* env, jlong jcc, jobject jcollection, jobject jloader, jobject jhandler,
                   Parse parse) {
  auto cc = from_jlong<k_class_collection_t>(jcc);
  k_class_t* members = k_cc_get_members(cc);
  if (members == nullptr) return 1;
  std::size_t before = 0;
  while (members[before] != nullptr) ++before;
  EnvScope scope(env, cc);
  ParseFrame errors{env, jhandler};
  LoaderFrame loader{env, jcollection, jloader};
  const k_status_t status = parse(cc, &loader, &errors);
  if (!env->ExceptionCheck()) return status;
  for (;;) {
    members = k_cc_get_members(cc);
    std::size_t count = 0;
    while (members[count] != nullptr) ++count;
    if (count <= before) break;
    k_class_delete(members[count - 1]);
  }
  return fail_with(K_ERROR_JNI, jint{1});
}

}  // namespace

extern "C" {

JNIEXPORT jint JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kNetParseClasses(
    JNIEnv* env, jclass, jstring jfile_name, jlong jcc, jobject jcollection, jobject jloader,
    jobject jhandler) {
  return guard<jint>(1, [&]() -> jint {
    const FileName name(env, jfile_name);
    if (name.error() != K_ERROR_NONE) return fail_with(name.error(), jint{1});
    return parse_classes(env, jcc, jcollection, jloader, jhandler,
                         [&](k_class_collection_t cc, LoaderFrame* loader, ParseFrame* errors) {
                           return k_net_parse_classes(name.get(), cc, &insert_class, loader,
                                                      &report_parse_error, errors);
                         });
  });
}

JNIEXPORT jint JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kNetParseClassesString(
    JNIEnv* env, jclass, jstring jtext, jlong jcc, jobject jcollection, jobject jloader,
    jobject jhandler) {
  return guard<jint>(1, [&]() -> jint {
    Utf text(env, jtext);
    if (!text.ok()) return fail_with(K_ERROR_JNI, jint{1});
    return parse_classes(env, jcc, jcollection, jloader, jhandler,
                         [&](k_class_collection_t cc, LoaderFrame* loader, ParseFrame* errors) {
                           return k_net_parse_classes_string(text.get(), cc, &insert_class, loader,
                                                             &report_parse_error, errors);
                         });
  });
}

JNIEXPORT jint JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kCCSaveAsNet(
    JNIEnv* env, jclass, jlong jcc, jstring jfile_name) {
  return guard<jint>(1, [&]() -> jint {
    const FileName name(env, jfile_name);
    if (name.error() != K_ERROR_NONE) return fail_with(name.error(), jint{1});
    return k_cc_save_as_net(from_jlong<k_class_collection_t>(jcc), name.get());
  });
}

JNIEXPORT jstring JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kCCToNetString(JNIEnv* env,
                                                                                       jclass,
                                                                                       jlong jcc) {
  return take_text(env, k_cc_to_net_string(from_jlong<k_class_collection_t>(jcc)));
}

}  // extern "C"
