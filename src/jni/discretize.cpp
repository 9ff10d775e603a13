// Hand-written discretisation natives: cut points cross as Java double
// arrays (null: none wanted, or none given).
#include "jni/jni_util.h"
#include "natives.h"

using namespace kelva;
using namespace kelva::jni;

extern "C" {

JNIEXPORT jlong JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kDSComputeIntervalsIEM(
    JNIEnv* env, jclass, jlong jds, jlong jcolumn, jlong jclass_column, jdoubleArray jcuts) {
  auto ds = from_jlong<k_data_set_t>(jds);
  const auto column = static_cast<k_size_t>(jcolumn);
  const auto class_column = static_cast<k_size_t>(jclass_column);
  if (jcuts == nullptr)
    return static_cast<jlong>(k_ds_compute_intervals_iem(ds, column, class_column, nullptr, 0));
  DoubleElements cuts(env, jcuts);
  if (!cuts.ok()) return fail_with(K_ERROR_JNI, jlong{-1});
  const k_size_t count =
      k_ds_compute_intervals_iem(ds, column, class_column, cuts.get(), cuts.length());
  if (count != K_SIZE_ERROR) cuts.commit();
  return static_cast<jlong>(count);
}

JNIEXPORT jlong JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kDSDiscretizeColumn(
    JNIEnv* env, jclass, jlong jds, jlong jcolumn, jint jmethod, jlong jintervals,
    jdoubleArray jcuts) {
  auto ds = from_jlong<k_data_set_t>(jds);
  const auto column = static_cast<k_size_t>(jcolumn);
  const auto method = static_cast<k_discretization_t>(jmethod);
  const auto intervals = static_cast<k_size_t>(jintervals);
  if (jcuts == nullptr)
    return static_cast<jlong>(k_ds_discretize_column(ds, column, method, intervals, nullptr, 0));
  DoubleElements cuts(env, jcuts);
  if (!cuts.ok()) return fail_with(K_ERROR_JNI, jlong{-1});
  const k_size_t count =
      k_ds_discretize_column(ds, column, method, intervals, cuts.get(), cuts.length());
  if (count != K_SIZE_ERROR) cuts.commit();
  return static_cast<jlong>(count);
}

JNIEXPORT jint JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kDSApplyDiscretization(
    JNIEnv* env, jclass, jlong jds, jlong jcolumn, jdoubleArray jcuts) {
  auto ds = from_jlong<k_data_set_t>(jds);
  const auto column = static_cast<k_size_t>(jcolumn);
  if (jcuts == nullptr) return k_ds_apply_discretization(ds, column, nullptr, 0);
  DoubleElements cuts(env, jcuts);
  if (!cuts.ok()) return fail_with(K_ERROR_JNI, jint{1});
  return k_ds_apply_discretization(ds, column, cuts.get(), cuts.length());
}

}  // extern "C"
