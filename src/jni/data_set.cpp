// Hand-written data set natives: the distinct values of a column (a Java
// string array) and the numbers of a column (a Java double array).
#include <atomic>

#include "jni/jni_util.h"
#include "natives.h"

using namespace kelva;
using namespace kelva::jni;

namespace {

// java.lang.String, looked up once and kept for the life of the library.
std::atomic<jclass> string_class_ref{nullptr};

jclass string_class(JNIEnv* env) noexcept {
  jclass known = string_class_ref.load(std::memory_order_acquire);
  if (known != nullptr) return known;
  LocalRef<jclass> local(env, env->FindClass("java/lang/String"));
  if (local.get() == nullptr) return nullptr;
  auto global = static_cast<jclass>(env->NewGlobalRef(local.get()));
  if (global == nullptr) return nullptr;
  if (!string_class_ref.compare_exchange_strong(known, global, std::memory_order_acq_rel)) {
    env->DeleteGlobalRef(global);  // another thread was first
    return known;
  }
  return global;
}

}  // namespace

extern "C" {

JNIEXPORT jobjectArray JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kDSGetDistinctValues(
    JNIEnv* env, jclass, jlong jds, jlong jcolumn) {
  const char* const* values =
      k_ds_get_distinct_values(from_jlong<k_data_set_t>(jds), static_cast<k_size_t>(jcolumn));
  if (values == nullptr) return nullptr;
  jsize count = 0;
  while (values[count] != nullptr) ++count;
  jclass string = string_class(env);
  if (string == nullptr) return fail_with(K_ERROR_JNI, jobjectArray{nullptr});
  jobjectArray array = env->NewObjectArray(count, string, nullptr);
  if (array == nullptr) return fail_with(K_ERROR_JNI, jobjectArray{nullptr});
  for (jsize i = 0; i < count; ++i) {
    LocalRef<jstring> text(env, env->NewStringUTF(values[i]));
    if (text.get() == nullptr) {
      env->DeleteLocalRef(array);
      return fail_with(K_ERROR_JNI, jobjectArray{nullptr});
    }
    env->SetObjectArrayElement(array, i, text.get());
  }
  return array;
}

JNIEXPORT jint JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kDSGetNumbers(
    JNIEnv* env, jclass, jlong jds, jlong jcolumn, jdoubleArray jnumbers, jlong jstart,
    jlong jcount) {
  auto ds = from_jlong<k_data_set_t>(jds);
  const auto column = static_cast<k_size_t>(jcolumn);
  const auto start = static_cast<k_size_t>(jstart);
  const auto count = static_cast<k_size_t>(jcount);
  if (jnumbers == nullptr) return k_ds_get_numbers(ds, column, nullptr, 0, start, count);
  DoubleElements numbers(env, jnumbers);
  if (!numbers.ok()) return fail_with(K_ERROR_JNI, jint{1});
  const k_status_t status =
      k_ds_get_numbers(ds, column, numbers.get(), numbers.length(), start, count);
  if (status == 0) numbers.commit();
  return status;
}

}  // extern "C"
