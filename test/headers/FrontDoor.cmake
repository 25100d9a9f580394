# What the front door promises of the header itself, found out with the compiler alone.
cmake_minimum_required(VERSION 3.25)

function(Run description)
    execute_process(COMMAND ${ARGN} OUTPUT_VARIABLE output ERROR_VARIABLE errors RESULT_VARIABLE result)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "${description}\n${errors}")
    endif()
    set(OUTPUT "${output}" PARENT_SCOPE)
endfunction()

# ---- How much the compiler reads for it, in C++17. In C++20 <string_view> alone is more.
function(CountLines result header)
    file(WRITE "${FOLDER}/one.cpp" "#include ${header}\n")
    Run("cannot preprocess ${header}" "${CXX}" -std=c++17 -E "-I${INCLUDE}" "${FOLDER}/one.cpp")
    string(REGEX MATCHALL "\n" lines "${OUTPUT}")
    list(LENGTH lines count)
    set(${result} ${count} PARENT_SCOPE)
endfunction()

CountLines(lines "\"tarn/Trace.h\"")
message(STATUS "tarn/Trace.h: ${lines} lines")
if(lines LESS 1000 OR lines GREATER 14000)
    message(FATAL_ERROR "tarn/Trace.h takes ${lines} preprocessed lines; 14,000 are allowed")
endif()

# ---- How long, compared with the one header that it cannot do without: the quickest of three runs of
# each, taken in turn, which other work on the machine slows down alike.
function(CompileTime result header)
    file(WRITE "${FOLDER}/one.cpp" "#include ${header}\n")
    string(TIMESTAMP before "%s%f")
    Run("cannot compile ${header}" "${CXX}" -std=c++17 -fsyntax-only "-I${INCLUDE}" "${FOLDER}/one.cpp")
    string(TIMESTAMP after "%s%f")
    math(EXPR time "${after} - ${before}")
    if(DEFINED ${result} AND ${result} LESS time)
        set(time ${${result}})
    endif()
    set(${result} ${time} PARENT_SCOPE)
endfunction()

foreach(run RANGE 1 3)
    CompileTime(own_time "\"tarn/Trace.h\"")
    CompileTime(standard_time <string_view>)
endforeach()
message(STATUS "tarn/Trace.h: ${own_time} us, <string_view>: ${standard_time} us")
math(EXPR allowed_time "3 * ${standard_time}")
if(own_time GREATER allowed_time)
    message(FATAL_ERROR "tarn/Trace.h takes ${own_time} us to compile, <string_view> ${standard_time}")
endif()

# ---- It defines no macro of another kind than TARN_...
function(Macros result header)
    file(WRITE "${FOLDER}/one.cpp" "#include ${header}\n")
    Run("cannot preprocess ${header}" "${CXX}" -std=c++17 -dM -E "-I${INCLUDE}" "${FOLDER}/one.cpp")
    string(REGEX MATCHALL "#define [A-Za-z_0-9]+" macros "${OUTPUT}")
    set(${result} ${macros} PARENT_SCOPE)
endfunction()

Macros(defined "\"tarn/Trace.h\"")
set(standard)
foreach(header IN ITEMS <stddef.h> <stdint.h> <cstddef> <cstdint> <new> <string_view> <type_traits>
                        <utility>)
    Macros(macros "${header}")
    list(APPEND standard ${macros})
endforeach()
list(REMOVE_ITEM defined ${standard})
list(FILTER defined EXCLUDE REGEX "^#define TARN_")
if(defined)
    message(FATAL_ERROR "tarn/Trace.h defines ${defined}")
endif()

# ---- With TARN_DISABLE nothing is left of it.
function(Disassemble result)
    Run("cannot compile ${SOURCE}" "${CXX}" -std=c++17 -O2 -Wall -Wextra -Werror "-I${INCLUDE}" ${ARGN}
        -c "${SOURCE}" -o "${FOLDER}/traced.o")
    Run("cannot read the object code" "${OBJDUMP}" -d -r --no-show-raw-insn "${FOLDER}/traced.o")
    set(${result} "${OUTPUT}" PARENT_SCOPE)
endfunction()

Disassemble(untraced)
Disassemble(disabled -DTRACED -DTARN_DISABLE)
Disassemble(traced -DTRACED)
if(NOT untraced MATCHES "Compute")
    message(FATAL_ERROR "there is no object code to compare:\n${untraced}")
endif()
if(NOT disabled STREQUAL untraced)
    message(FATAL_ERROR "TARN_DISABLE leaves something:\n${disabled}\ninstead of\n${untraced}")
endif()
if(NOT traced MATCHES "tarn_scope_open")
    message(FATAL_ERROR "without TARN_DISABLE nothing is traced:\n${traced}")
endif()
if(traced MATCHES "__cxa_guard")
    message(FATAL_ERROR "what a place remembers is made when it is first used:\n${traced}")
endif()

# ---- What cannot be meant is refused in words.
function(ExpectRefusal code pattern)
    file(WRITE "${FOLDER}/wrong.cpp" "#include \"tarn/Trace.h\"\nstruct Own {};\nvoid Use() { ${code} }\n")
    execute_process(
        COMMAND "${CXX}" -std=c++17 -fsyntax-only "-I${INCLUDE}" "${FOLDER}/wrong.cpp"
        ERROR_VARIABLE errors RESULT_VARIABLE result)
    if(result EQUAL 0 OR NOT errors MATCHES "${pattern}")
        message(FATAL_ERROR "${code}\nis not refused with '${pattern}', but with\n${errors}")
    endif()
endfunction()

ExpectRefusal("tarn::Scope s(\"s\", {{\"own\", Own()}})\;" "specialise tarn::ToAttribute")
ExpectRefusal("TARN_SCOPE(\"s\", \"key\")\;" "a name and a value for each attribute")
ExpectRefusal("delete new tarn::Scope(\"s\")\;" "deleted function")
