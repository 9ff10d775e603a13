// gen_natives: turns the lists of native methods (natives/*.list, read in the
// order of natives/order.txt) into the JNI glue and prototypes (C++) and the
// Java declarations, and the error table (error_codes.def) into the Java
// ErrorCode enum.  Built and run by CMake.
//
//   gen_natives cpp  <natives-dir> <out-dir>
//       writes natives.h (every native's prototype) and natives_glue.cpp
//       (the bodies of the plain and env natives)
//   gen_natives java <natives-dir> <error_codes.def> <out-dir>
//       writes COM/kelva/KAPI/Native/AbstractNativeKAPI.java,
//       COM/kelva/KAPI/ErrorCode.java and natives.txt (one name a line)
//
// A file is rewritten only when its contents change, so an edit of the list
// rebuilds only what depends on it.

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

constexpr const char* kJniPrefix = "Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_";

struct Param {
  std::string type;  // Java type
  std::string name;
};

struct Native {
  std::string file;  // list file name, for comments in the glue
  int line = 0;
  std::string name;
  std::string ret;  // Java type
  std::vector<Param> params;
  std::string function;  // engine function or "-"
  std::string kind;      // plain, env, custom
  std::string failure;   // may be empty
};

[[noreturn]] void fail(const std::string& where, const std::string& what) {
  throw std::runtime_error(where + ": " + what);
}

std::string trim(const std::string& s) {
  std::size_t b = s.find_first_not_of(" \t\r");
  if (b == std::string::npos) return {};
  std::size_t e = s.find_last_not_of(" \t\r");
  return s.substr(b, e - b + 1);
}

bool is_identifier(const std::string& s) {
  if (s.empty() || !(std::isalpha(static_cast<unsigned char>(s[0])) || s[0] == '_')) return false;
  for (char c : s)
    if (!std::isalnum(static_cast<unsigned char>(c)) && c != '_') return false;
  return true;
}

// The JNI C type of a Java type; classes other than String are jobject.
std::string jni_type(const std::string& java, const std::string& where) {
  static const std::map<std::string, std::string> known = {
      {"void", "void"},         {"int", "jint"},
      {"long", "jlong"},        {"double", "jdouble"},
      {"String", "jstring"},    {"double[]", "jdoubleArray"},
      {"long[]", "jlongArray"}, {"String[]", "jobjectArray"},
      {"byte[]", "jbyteArray"},
  };
  auto it = known.find(java);
  if (it != known.end()) return it->second;
  // A peer class, written with its package.
  std::size_t start = 0;
  while (true) {
    std::size_t dot = java.find('.', start);
    if (!is_identifier(java.substr(start, dot - start)))
      fail(where, "unknown Java type '" + java + "'");
    if (dot == std::string::npos) break;
    start = dot + 1;
  }
  if (java.find('.') == std::string::npos) fail(where, "class type without package '" + java + "'");
  return "jobject";
}

// Whether a native belongs to a family of objects (k<Family><Verb>) and so
// takes the object's handle first.  The others make objects from values
// (kNew..., kNumberMakeExpression), parse texts or answer global questions.
bool takes_handle(const std::string& name) {
  static const char* const families[] = {
      "Domain", "Node",      "DS",       "Table",           "JT",
      "Class",  "CC",        "Model",    "Expression",      "Clique",
      "List",   "Attribute", "Solution", "AmbiguousRegion", "UncertainEdge"};
  for (const char* family : families) {
    const std::string prefix = std::string("k") + family;
    if (name.size() > prefix.size() && name.rfind(prefix, 0) == 0 &&
        std::isupper(static_cast<unsigned char>(name[prefix.size()])))
      return true;
  }
  return false;
}

// Reads one entry: name return (params) function kind [failure].
Native parse_entry(const std::string& text, const std::string& where, int line) {
  Native n;
  n.line = line;
  std::size_t open = text.find('(');
  std::size_t close = text.find(')');
  if (open == std::string::npos || close == std::string::npos || close < open)
    fail(where, "expected a parenthesised parameter list");
  std::istringstream head(text.substr(0, open));
  if (!(head >> n.name >> n.ret)) fail(where, "expected a name and a return type");
  std::string extra;
  if (head >> extra) fail(where, "unexpected '" + extra + "' before the parameters");
  std::string plist = trim(text.substr(open + 1, close - open - 1));
  if (!plist.empty()) {
    std::istringstream ps(plist);
    std::string piece;
    while (std::getline(ps, piece, ',')) {
      std::istringstream one(piece);
      Param p;
      if (!(one >> p.type >> p.name) || (one >> extra))
        fail(where, "bad parameter '" + trim(piece) + "'");
      if (!is_identifier(p.name)) fail(where, "bad parameter name '" + p.name + "'");
      n.params.push_back(p);
    }
  }
  std::istringstream tail(text.substr(close + 1));
  if (!(tail >> n.function >> n.kind)) fail(where, "expected an engine function and a kind");
  tail >> n.failure;
  if (tail >> extra) fail(where, "unexpected '" + extra + "' at the end");
  return n;
}

void check_entry(const Native& n, const std::string& where) {
  if (n.name.size() < 2 || n.name[0] != 'k' || !std::isupper(static_cast<unsigned char>(n.name[1])))
    fail(where, "a native's name is k followed by its family: '" + n.name + "'");
  for (char c : n.name)
    if (!std::isalnum(static_cast<unsigned char>(c)))
      fail(where, "a native's name is letters and digits only (no JNI escapes): '" + n.name + "'");
  jni_type(n.ret, where);
  bool has_text = false;
  for (const Param& p : n.params) {
    if (p.type == "void") fail(where, "a parameter cannot be void");
    jni_type(p.type, where);
    has_text = has_text || p.type == "String";
  }
  if (takes_handle(n.name) && (n.params.empty() || n.params[0].type != "long"))
    fail(where, "the first parameter of '" + n.name + "' must be its handle (long)");
  if (n.kind != "plain" && n.kind != "env" && n.kind != "custom")
    fail(where, "unknown kind '" + n.kind + "'");
  if (n.kind == "custom") {
    if (n.function != "-" && n.function.rfind("k_", 0) != 0) fail(where, "bad engine function");
    if (!n.failure.empty()) fail(where, "custom natives handle their own failures");
    return;
  }
  if (n.function.rfind("k_", 0) != 0 || !is_identifier(n.function))
    fail(where, "plain and env natives name an engine function k_...");
  if (n.ret == "void") fail(where, "engine functions return a value");
  for (const Param& p : n.params)
    if (jni_type(p.type, where) != "jint" && jni_type(p.type, where) != "jlong" &&
        jni_type(p.type, where) != "jdouble" && p.type != "String")
      fail(where, "type '" + p.type + "' needs a custom native");
  if (n.kind == "env" && (n.params.empty() || n.params[0].type != "long"))
    fail(where, "env natives take a handle first");
  if (has_text && n.failure.empty()) fail(where, "a native taking a String needs a failure value");
}

// Reads one list file, appending to `natives`; `names` catches a native
// declared twice, in this file or an earlier one.
void read_list_file(const std::string& path, std::vector<Native>& natives,
                    std::set<std::string>& names) {
  std::ifstream in(path);
  if (!in) throw std::runtime_error("cannot open " + path);
  std::string text;
  int line = 0;
  while (std::getline(in, text)) {
    ++line;
    std::size_t hash = text.find('#');
    if (hash != std::string::npos) text.resize(hash);
    if (trim(text).empty()) continue;
    const std::string where = path + ":" + std::to_string(line);
    Native n = parse_entry(text, where, line);
    n.file = std::filesystem::path(path).filename().string();
    check_entry(n, where);
    if (!names.insert(n.name).second) fail(where, "duplicate native '" + n.name + "'");
    natives.push_back(std::move(n));
  }
}

// Reads a list file, or the *.list files of a directory (one per family of
// natives) in the order its order.txt names them.  Every list file must be
// named there exactly once, so none is left out or read twice.
std::vector<Native> read_list(const std::string& path) {
  std::vector<Native> natives;
  std::set<std::string> names;
  if (std::filesystem::is_directory(path)) {
    const std::filesystem::path dir(path);
    const std::string order_path = (dir / "order.txt").string();
    std::ifstream order(order_path);
    if (!order) throw std::runtime_error("cannot open " + order_path);
    std::set<std::string> listed;
    std::vector<std::string> files;
    std::string text;
    int line = 0;
    while (std::getline(order, text)) {
      ++line;
      std::size_t hash = text.find('#');
      if (hash != std::string::npos) text.resize(hash);
      text = trim(text);
      if (text.empty()) continue;
      const std::string where = order_path + ":" + std::to_string(line);
      if (std::filesystem::path(text).extension() != ".list" || text.find('/') != std::string::npos)
        fail(where, "'" + text + "' is not a list file of this folder");
      if (!listed.insert(text).second) fail(where, "'" + text + "' is named twice");
      files.push_back(text);
    }
    for (const auto& entry : std::filesystem::directory_iterator(dir))
      if (entry.path().extension() == ".list" &&
          listed.count(entry.path().filename().string()) == 0)
        fail(order_path, "the list " + entry.path().filename().string() + " is not named");
    for (const std::string& file : files) read_list_file((dir / file).string(), natives, names);
  } else {
    read_list_file(path, natives, names);
  }
  if (natives.empty()) throw std::runtime_error(path + ": no natives");
  return natives;
}

void write_if_changed(const std::filesystem::path& path, const std::string& text) {
  {
    std::ifstream old(path, std::ios::binary);
    if (old) {
      std::ostringstream buf;
      buf << old.rdbuf();
      if (buf.str() == text) return;
    }
  }
  std::filesystem::create_directories(path.parent_path());
  std::ofstream out(path, std::ios::binary);
  out << text;
  if (!out) throw std::runtime_error("cannot write " + path.string());
}

std::string prototype(const Native& n, bool with_names) {
  std::ostringstream s;
  s << "JNIEXPORT " << jni_type(n.ret, "") << " JNICALL " << kJniPrefix << n.name << "(JNIEnv*"
    << (with_names ? " env" : "") << ", jclass";
  for (const Param& p : n.params) {
    s << ", " << jni_type(p.type, "");
    if (with_names) s << " j" << p.name;
  }
  s << ")";
  return s.str();
}

// The failure value of a plain or env native as a C++ expression.
std::string failure_value(const Native& n) {
  const std::string type = jni_type(n.ret, "");
  if (n.failure.empty() || n.failure == "null") return type + "{}";
  return type + "{" + n.failure + "}";
}

void write_cpp(const std::vector<Native>& natives, const std::filesystem::path& dir) {
  std::ostringstream h;
  h << "// Generated by gen_natives from the native lists: do not edit.\n"
       "// The prototype of every native method; the hand-written ones are\n"
       "// checked against it when they compile.\n"
       "#pragma once\n\n#include <jni.h>\n\nextern \"C\" {\n\n";
  for (const Native& n : natives) h << prototype(n, false) << ";\n";
  h << "\n}  // extern \"C\"\n";
  write_if_changed(dir / "natives.h", h.str());

  std::ostringstream c;
  c << "// Generated by gen_natives from the native lists: do not edit.\n"
       "// The natives that only convert arguments and results.\n"
       "#include \"natives.h\"\n\n#include \"jni/forward.h\"\n\nextern \"C\" {\n";
  for (const Native& n : natives) {
    if (n.kind == "custom") continue;
    c << "\n// " << n.name << " (" << n.file << ":" << n.line << ")\n"
      << prototype(n, true) << " {\n"
      << "  return kelva::jni::forward<&" << n.function << ", "
      << (n.kind == "env" ? "kelva::jni::Bracket::env" : "kelva::jni::Bracket::none") << ">(env, "
      << failure_value(n);
    for (const Param& p : n.params) c << ", j" << p.name;
    c << ");\n}\n";
  }
  c << "\n}  // extern \"C\"\n\n"
       "// Every custom native's engine operation exists.\n"
       "[[maybe_unused]] static const void* const kCustomOperations[] = {\n";
  for (const Native& n : natives)
    if (n.kind == "custom" && n.function != "-")
      c << "    reinterpret_cast<const void*>(&" << n.function << "),\n";
  c << "    nullptr};\n";
  write_if_changed(dir / "natives_glue.cpp", c.str());
}

std::string javadoc_of(const Native& n) {
  std::ostringstream s;
  if (n.function == "-" && (n.name == "kNewList" || n.name.rfind("kList", 0) == 0))
    s << "Engine list access (no argument checks, error code unchanged).";
  else if (n.function == "-")
    s << "An operation of the native layer itself, with no engine counterpart.";
  else
    s << "Calls the engine operation {@code " << n.function << "}"
      << (n.kind == "custom" ? ", with the conversions of the native layer." : ".");
  for (const Param& p : n.params)
    s << "\n   * @param " << p.name << " argument {@code " << p.name << "}";
  if (n.ret != "void") s << "\n   * @return the operation's result";
  return s.str();
}

// One row of the error table: KELVA_ERROR(code, name, NAME, "description").
struct ErrorRow {
  int code;
  std::string name;
  std::string upper;
  std::string literal;  // the C string literal, quotes included
};

std::vector<ErrorRow> read_errors(const std::string& path) {
  std::ifstream in(path);
  if (!in) throw std::runtime_error("cannot open " + path);
  std::vector<ErrorRow> rows;
  std::string text;
  int line = 0;
  while (std::getline(in, text)) {
    ++line;
    if (text.rfind("KELVA_ERROR(", 0) != 0) continue;
    const std::string where = path + ":" + std::to_string(line);
    std::size_t quote = text.find('"');
    std::size_t end = text.rfind(')');
    if (quote == std::string::npos || end == std::string::npos || end < quote)
      fail(where, "bad error row");
    std::istringstream fields(text.substr(12, quote - 12));
    ErrorRow r;
    std::string code, name, upper;
    std::getline(fields, code, ',');
    std::getline(fields, name, ',');
    std::getline(fields, upper, ',');
    r.code = std::stoi(trim(code));
    r.name = trim(name);
    r.upper = trim(upper);
    r.literal = trim(text.substr(quote, end - quote));
    if (!is_identifier(r.name) || !is_identifier(r.upper)) fail(where, "bad error name");
    rows.push_back(r);
  }
  if (rows.empty()) throw std::runtime_error(path + ": no error rows");
  return rows;
}

// A C string literal's text for a Javadoc comment.
std::string literal_text(const std::string& literal) {
  std::string out;
  for (std::size_t i = 1; i + 1 < literal.size(); ++i) {
    if (literal[i] == '\\' && i + 2 < literal.size()) ++i;
    char c = literal[i];
    if (c == '<') out += "&lt;";
    else if (c == '>') out += "&gt;";
    else if (c == '&') out += "&amp;";
    else if (c == '@') out += "&#64;";
    else out += c;
  }
  return out;
}

void write_java(const std::vector<Native>& natives, const std::vector<ErrorRow>& errors,
                const std::filesystem::path& dir) {
  std::ostringstream j;
  j << "// Generated by gen_natives from the native lists: do not edit.\n"
       "package COM.kelva.KAPI.Native;\n\n"
       "/**\n"
       " * The native methods of the Kelva library, one per engine operation.\n"
       " *\n"
       " * <p>Engine objects are handles (their addresses as {@code long}, 0 for none).\n"
       " * No method throws for a failed operation: each leaves the calling thread's\n"
       " * error code behind, read with {@link #kErrorCode}.  Programs normally use the\n"
       " * classes of {@code COM.kelva.KAPI} instead.\n"
       " */\n"
       "public abstract class AbstractNativeKAPI {\n"
       "  static {\n    System.loadLibrary(\"kelva\");\n  }\n\n"
       "  /** For subclasses only; every method is static. */\n"
       "  protected AbstractNativeKAPI() {}\n";
  for (const Native& n : natives) {
    j << "\n  /**\n   * " << javadoc_of(n) << "\n   */\n  public static native " << n.ret << " "
      << n.name << "(";
    for (std::size_t i = 0; i < n.params.size(); ++i)
      j << (i ? ", " : "") << n.params[i].type << " " << n.params[i].name;
    j << ");\n";
  }
  j << "}\n";
  write_if_changed(dir / "COM/kelva/KAPI/Native/AbstractNativeKAPI.java", j.str());

  std::ostringstream e;
  e << "// Generated by gen_natives from error_codes.def: do not edit.\n"
       "package COM.kelva.KAPI;\n\n"
       "/** The error codes of the Kelva library, with their short names and descriptions. */\n"
       "public enum ErrorCode {\n";
  for (std::size_t i = 0; i < errors.size(); ++i) {
    const ErrorRow& r = errors[i];
    e << "  /** " << r.code << " \"" << r.name << "\": " << literal_text(r.literal) << " */\n  "
      << r.upper << "(" << r.code << ", \"" << r.name << "\",\n      " << r.literal << ")"
      << (i + 1 < errors.size() ? ",\n" : ";\n");
  }
  e << "\n  private static final ErrorCode[] BY_CODE = new ErrorCode[" << errors.back().code + 1
    << "];\n\n"
       "  static {\n    for (ErrorCode c : values()) BY_CODE[c.code] = c;\n  }\n\n"
       "  private final int code;\n  private final String shortName;\n  private final String "
       "description;\n\n"
       "  ErrorCode(int code, String shortName, String description) {\n"
       "    this.code = code;\n    this.shortName = shortName;\n    this.description = "
       "description;\n  }\n\n"
       "  /**\n   * The number that crosses the native boundary.\n   *\n   * @return the code\n   "
       "*/\n"
       "  public int code() {\n    return code;\n  }\n\n"
       "  /**\n   * The short name, e.g. {@code \"usage\"}.\n   *\n   * @return the short name\n   "
       "*/\n"
       "  public String shortName() {\n    return shortName;\n  }\n\n"
       "  /**\n   * The description, one or more sentences.\n   *\n   * @return the description\n  "
       " */\n"
       "  public String description() {\n    return description;\n  }\n\n"
       "  /**\n   * The error code with number {@code code}.\n   *\n   * @param code a code\n"
       "   * @return the code's constant, or null for a number that is no code\n   */\n"
       "  public static ErrorCode fromCode(int code) {\n"
       "    return code >= 0 && code < BY_CODE.length ? BY_CODE[code] : null;\n  }\n}\n";
  write_if_changed(dir / "COM/kelva/KAPI/ErrorCode.java", e.str());

  std::ostringstream t;
  for (const Native& n : natives) t << n.name << "\n";
  write_if_changed(dir / "natives.txt", t.str());
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const std::string mode = argc > 1 ? argv[1] : "";
    if (mode == "cpp" && argc == 4) {
      write_cpp(read_list(argv[2]), argv[3]);
    } else if (mode == "java" && argc == 5) {
      write_java(read_list(argv[2]), read_errors(argv[3]), argv[4]);
    } else {
      std::cerr << "usage: gen_natives cpp <natives-dir> <out-dir>\n"
                   "       gen_natives java <natives-dir> <error_codes.def> <out-dir>\n";
      return 2;
    }
  } catch (const std::exception& e) {
    std::cerr << "gen_natives: " << e.what() << "\n";
    return 1;
  }
  return 0;
}
