cmake_minimum_required(VERSION 3.25)
# Checks that the library defines the JNI function of every native listed in
# NATIVES (one name a line), that no name is listed twice, and that the
# library exports no native that is not listed.
#   cmake -DNM=nm -DLIBRARY=libkelva.so -DNATIVES=natives.txt -P check_exports.cmake
set(prefix Java_COM_kelva_KAPI_Native_AbstractNativeKAPI_)

execute_process(COMMAND ${NM} -D --defined-only ${LIBRARY}
                OUTPUT_VARIABLE symbols RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "${NM} failed on ${LIBRARY}")
endif()
string(REGEX MATCHALL "${prefix}[A-Za-z0-9_]+" exported "${symbols}")

file(STRINGS ${NATIVES} names)
set(unique ${names})
list(REMOVE_DUPLICATES unique)
list(LENGTH names count)
list(LENGTH unique unique_count)
if(NOT count EQUAL unique_count)
  message(FATAL_ERROR "natives listed twice")
endif()

set(missing)
foreach(name ${names})
  if(NOT "${prefix}${name}" IN_LIST exported)
    list(APPEND missing ${name})
  endif()
endforeach()
set(extra)
foreach(symbol ${exported})
  string(REPLACE "${prefix}" "" name ${symbol})
  if(NOT name IN_LIST names)
    list(APPEND extra ${name})
  endif()
endforeach()
if(missing OR extra)
  message(FATAL_ERROR "not defined by the library: ${missing}\nexported but not declared: ${extra}")
endif()
message(STATUS "${count} natives, all defined")
