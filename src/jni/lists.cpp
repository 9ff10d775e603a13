// Engine lists made and read from Java: arrays of 64-bit handle slots ended
// by a 0 slot.  These natives check nothing and leave the error code alone;
// the Java side owns the lists it makes and fills every slot.
#include <cstdlib>

#include "jni/jni_util.h"
#include "natives.h"

using namespace kelva;
using namespace kelva::jni;

static_assert(sizeof(void*) == sizeof(jlong), "list slots hold handles");

extern "C" {

JNIEXPORT jlong JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kNewList(JNIEnv*, jclass,
                                                                               jlong jn) {
  // A count whose byte size overflows (a negative one too) asks for the
  // all-ones size, and that allocation fails.
  k_size_t bytes = 0;
  if (__builtin_mul_overflow(static_cast<k_size_t>(jn), k_size_t{sizeof(void*)}, &bytes))
    bytes = K_SIZE_ERROR;
  return to_jlong(std::malloc(static_cast<std::size_t>(bytes)));
}

JNIEXPORT jlong JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kListGetItem(JNIEnv*, jclass,
                                                                                   jlong jlist,
                                                                                   jlong jindex) {
  return to_jlong(from_jlong<void* const*>(jlist)[jindex]);
}

JNIEXPORT jlong JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kListSetItem(JNIEnv*, jclass,
                                                                                   jlong jlist,
                                                                                   jlong jindex,
                                                                                   jlong jitem) {
  from_jlong<void**>(jlist)[jindex] = from_jlong<void*>(jitem);
  return jitem;
}

JNIEXPORT void JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kListDelete(JNIEnv*, jclass,
                                                                                 jlong jlist) {
  std::free(from_jlong<void*>(jlist));
}

}  // extern "C"
