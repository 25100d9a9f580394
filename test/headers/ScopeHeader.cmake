# How much the compiler reads for tarn/ActivityScope.h in C++17, without empty lines and without the
# preprocessor's own. <memory>, <string>, <vector> and <list>, which its interface cannot do without,
# are nearly all of it.
cmake_minimum_required(VERSION 3.25)

set(allowed 29100)

file(WRITE "${FOLDER}/scope.cpp" "#include \"tarn/ActivityScope.h\"\n")
execute_process(
    COMMAND "${CXX}" -std=c++17 -E -P ${INCLUDES} "${FOLDER}/scope.cpp"
    OUTPUT_VARIABLE output ERROR_VARIABLE errors RESULT_VARIABLE result)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "cannot preprocess tarn/ActivityScope.h\n${errors}")
endif()
string(REGEX MATCHALL "\n" lines "${output}")
list(LENGTH lines count)
message(STATUS "tarn/ActivityScope.h: ${count} lines")
if(count LESS 1000 OR count GREATER allowed)
    message(FATAL_ERROR "tarn/ActivityScope.h takes ${count} preprocessed lines; ${allowed} are allowed")
endif()
