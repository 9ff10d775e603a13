// Hand-written NET natives: a domain read from a file or from text, with
// errors going to a Java handler, and written to a file or to text.  File
// names cross as UTF-16 in both directions.
#include <string>

#include "jni/callback.h"
#include "jni/jni_util.h"
#include "natives.h"

using namespace kelva;
using namespace kelva::jni;

namespace {

// Decodes the UTF-8 file name the engine keeps back to the UTF-16 it came
// from; NewStringUTF reads modified UTF-8, which spells characters outside
// the basic plane differently.  A malformed sequence becomes U+FFFD.
std::u16string utf8_to_utf16(const char* text) {
  std::u16string out;
  const auto* p = reinterpret_cast<const unsigned char*>(text);
  while (*p != 0) {
    const unsigned char lead = *p++;
    int more = 0;
    char32_t c = lead;
    char32_t least = 0;  // the smallest code point of the sequence's length
    if (lead >= 0xF8 || (lead >= 0x80 && lead < 0xC0)) {
      more = -1;  // no lead byte
    } else if (lead >= 0xF0) {
      more = 3, c = lead & 0x07u, least = 0x10000;
    } else if (lead >= 0xE0) {
      more = 2, c = lead & 0x0Fu, least = 0x800;
    } else if (lead >= 0xC0) {
      more = 1, c = lead & 0x1Fu, least = 0x80;
    }
    for (int i = 0; i < more; ++i, ++p) {
      if ((*p & 0xC0u) != 0x80u) {
        more = -1;  // cut short: the byte that broke it starts the next character
        break;
      }
      c = (c << 6) | (*p & 0x3Fu);
    }
    if (more < 0 || c < least || c > 0x10FFFF || (c >= 0xD800 && c < 0xE000)) {
      out.push_back(u'\uFFFD');
    } else if (c >= 0x10000) {
      c -= 0x10000;
      out.push_back(static_cast<char16_t>(0xD800 + (c >> 10)));
      out.push_back(static_cast<char16_t>(0xDC00 + (c & 0x3FFu)));
    } else {
      out.push_back(static_cast<char16_t>(c));
    }
  }
  return out;
}

// The result of a parse.  When the handler threw, the domain (which may
// exist: warnings are reported too) is discarded and the exception is left
// for the Java caller.
jlong parsed(JNIEnv* env, k_domain_t domain) noexcept {
  if (env->ExceptionCheck()) {
    // No node of a domain just read has a Java peer: deleting it makes no
    // JNI call while the exception is pending.
    if (domain != nullptr) k_domain_delete(domain);
    return fail_with(K_ERROR_JNI, jlong{0});
  }
  return to_jlong(domain);
}

}  // namespace

extern "C" {

JNIEXPORT jlong JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kNetParseDomain(JNIEnv* env, jclass,
                                                                                      jstring jfile_name,
                                                                                      jobject jhandler) {
  return guard<jlong>(0, [&]() -> jlong {
    const FileName name(env, jfile_name);
    if (name.error() != K_ERROR_NONE) return fail_with(name.error(), jlong{0});
    ParseFrame frame{env, jhandler};
    return parsed(env, k_net_parse_domain(name.get(), &report_parse_error, &frame));
  });
}

JNIEXPORT jlong JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kNetParseDomainString(
    JNIEnv* env, jclass, jstring jtext, jobject jhandler) {
  return guard<jlong>(0, [&]() -> jlong {
    Utf text(env, jtext);
    if (!text.ok()) return fail_with(K_ERROR_JNI, jlong{0});
    ParseFrame frame{env, jhandler};
    return parsed(env, k_net_parse_domain_string(text.get(), &report_parse_error, &frame));
  });
}

JNIEXPORT jint JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kDomainSaveAsNet(JNIEnv* env, jclass,
                                                                                      jlong jdomain,
                                                                                      jstring jfile_name) {
  return guard<jint>(1, [&]() -> jint {
    const FileName name(env, jfile_name);
    if (name.error() != K_ERROR_NONE) return fail_with(name.error(), jint{1});
    return k_domain_save_as_net(from_jlong<k_domain_t>(jdomain), name.get());
  });
}

JNIEXPORT jstring JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kDomainToNetString(JNIEnv* env,
                                                                                           jclass,
                                                                                           jlong jdomain) {
  return take_text(env, k_domain_to_net_string(from_jlong<k_domain_t>(jdomain)));
}

JNIEXPORT jstring JNICALL Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_kDomainGetFileName(JNIEnv* env,
                                                                                           jclass,
                                                                                           jlong jdomain) {
  return guard<jstring>(nullptr, [&]() -> jstring {
    const char* name = k_domain_get_file_name(from_jlong<k_domain_t>(jdomain));
    if (name == nullptr) return nullptr;
    const std::u16string chars = utf8_to_utf16(name);
    jstring s =
        env->NewString(reinterpret_cast<const jchar*>(chars.data()), static_cast<jsize>(chars.size()));
    if (s == nullptr) k_error_set(K_ERROR_JNI);
    return s;
  });
}

}  // extern "C"
