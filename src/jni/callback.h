// Call-backs from engine parsers into Java: the parse error handler.
#pragma once

#include <jni.h>

#include <cstdint>

#include "kelva/kelva.h"

namespace kelva::jni {

/// What a parse's error reports need: the caller's JNIEnv, the Java error
/// handler (may be null) and its "parseError" method, looked up on the first
/// report.
struct ParseFrame {
  JNIEnv* env;
  jobject handler;
  jmethodID method = nullptr;
};

/// The engine's parse error handler for a ParseFrame (`data`): calls
/// handler.parseError(int position, String message).  Does nothing without
/// a handler, with a Java exception pending (a handler that threw hears no
/// more reports) or without room for a local reference.
void report_parse_error(std::uint64_t position, const char* message, void* data) noexcept;

/// The result of a domain parse for Java.  When the handler threw, the
/// domain (which may exist: warnings are reported too) is discarded and the
/// exception is left for the Java caller.
jlong parsed_domain(JNIEnv* env, k_domain_t domain) noexcept;

}  // namespace kelva::jni
