// Hand-written table natives: data ranges and configurations (Java arrays)
// and marginals, which are new tables with a Java peer.
#include <algorithm>
#include <cstddef>
#include <vector>

#include "jni/jni_util.h"
#include "natives.h"

using namespace kelva;
using namespace kelva::jni;

namespace {

// The node counts of a table: all nodes, and the discrete ones (listed
// first), which alone have configurations.
struct NodeCounts {
  std::size_t all = 0;
  std::size_t discrete = 0;
};

// The node counts of a live table; false (with "usage") for a dead one.
bool count_nodes(k_table_t table, NodeCounts& counts) noexcept {
  const k_node_t* nodes = k_table_get_nodes(table);
  if (nodes == nullptr) return false;
  for (; nodes[counts.all] != nullptr; ++counts.all)
    if (k_node_get_kind(nodes[counts.all]) == K_KIND_DISCRETE) ++counts.discrete;
  return true;
}

// A configuration buffer with a slot for every node of the table, so that
// the engine never reads or writes outside it whatever the Java array's
// length; the Java array must cover the discrete nodes.
std::vector<k_size_t> configuration_buffer(const NodeCounts& counts, jsize java_length) {
  return std::vector<k_size_t>(
      std::max<std::size_t>({counts.all, static_cast<std::size_t>(java_length), 1}), 0);
}

}  // namespace

extern "C" {

JNIEXPORT jint JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kTableGetData(
    JNIEnv* env, jclass, jlong jtable, jdoubleArray jdata, jlong jstart, jlong jcount) {
  auto table = from_jlong<k_table_t>(jtable);
  const auto start = static_cast<k_size_t>(jstart);
  const auto count = static_cast<k_size_t>(jcount);
  if (jdata == nullptr) return k_table_get_data(table, nullptr, 0, start, count);
  DoubleElements data(env, jdata);
  if (!data.ok()) return fail_with(K_ERROR_JNI, jint{1});
  const k_status_t status = k_table_get_data(table, data.get(), data.length(), start, count);
  if (status == 0) data.commit();
  return status;
}

JNIEXPORT jint JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kTableSetData(
    JNIEnv* env, jclass, jlong jtable, jdoubleArray jdata, jlong jstart, jlong jcount) {
  auto table = from_jlong<k_table_t>(jtable);
  const auto start = static_cast<k_size_t>(jstart);
  const auto count = static_cast<k_size_t>(jcount);
  if (jdata == nullptr) return k_table_set_data(table, nullptr, 0, start, count);
  DoubleElements data(env, jdata);  // read only: released with JNI_ABORT
  if (!data.ok()) return fail_with(K_ERROR_JNI, jint{1});
  return k_table_set_data(table, data.get(), data.length(), start, count);
}

JNIEXPORT jlong JNICALL
Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kTableGetIndexFromConfiguration(
    JNIEnv* env, jclass, jlong jtable, jlongArray jconfiguration) {
  return guard<jlong>(-1, [&]() -> jlong {
    auto table = from_jlong<k_table_t>(jtable);
    NodeCounts counts;
    if (!count_nodes(table, counts) || jconfiguration == nullptr)
      return fail_with(K_ERROR_USAGE, jlong{-1});
    const jsize length = env->GetArrayLength(jconfiguration);
    if (static_cast<std::size_t>(length) < counts.discrete)
      return fail_with(K_ERROR_USAGE, jlong{-1});
    std::vector<k_size_t> configuration = configuration_buffer(counts, length);
    env->GetLongArrayRegion(jconfiguration, 0, length,
                            reinterpret_cast<jlong*>(configuration.data()));
    if (env->ExceptionCheck()) return fail_with(K_ERROR_JNI, jlong{-1});
    return k_table_get_index_from_configuration(table, configuration.data());
  });
}

JNIEXPORT jint JNICALL
Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kTableGetConfigurationFromIndex(
    JNIEnv* env, jclass, jlong jtable, jlongArray jconfiguration, jlong jindex) {
  return guard<jint>(1, [&]() -> jint {
    auto table = from_jlong<k_table_t>(jtable);
    NodeCounts counts;
    if (!count_nodes(table, counts) || jconfiguration == nullptr)
      return fail_with(K_ERROR_USAGE, jint{1});
    const jsize length = env->GetArrayLength(jconfiguration);
    if (static_cast<std::size_t>(length) < counts.discrete)
      return fail_with(K_ERROR_USAGE, jint{1});
    std::vector<k_size_t> configuration = configuration_buffer(counts, length);
    const k_status_t status = k_table_get_configuration_from_index(table, configuration.data(),
                                                                   static_cast<k_size_t>(jindex));
    if (status != 0) return status;
    env->SetLongArrayRegion(jconfiguration, 0, static_cast<jsize>(counts.discrete),
                            reinterpret_cast<const jlong*>(configuration.data()));
    if (env->ExceptionCheck()) return fail_with(K_ERROR_JNI, jint{1});
    return 0;
  });
}

JNIEXPORT jlong JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kTableGetMarginal(
    JNIEnv* env, jclass, jlong jtable, jlong jnodes, jint jcode, jobject jmarginal) {
  k_table_t marginal =
      k_table_get_marginal(from_jlong<k_table_t>(jtable), from_jlong<const k_node_t*>(jnodes),
                           static_cast<k_equilibrium_t>(jcode));
  return hand_new_table(env, marginal, jmarginal);
}

}  // extern "C"
