# Flags that keep an error in memory from being of use to an attacker, for what is installed. On in a
# build of this project, which nobody else gives flags to; off in a subproject, whose project decides.
#
# A distribution chooses such flags for all of its packages. What it says of the stack protector or of
# _FORTIFY_SOURCE, in CXXFLAGS or in its compiler, is left as it says it, be it more or less strict.
option(TARN_HARDENING "Harden the libraries and programs that are installed" ${PROJECT_IS_TOP_LEVEL})

include(CheckCXXCompilerFlag)
include(CheckCXXSourceCompiles)

# Into `result`: whether the preprocessor's `condition` holds with the flags of this build. Asked each
# time, as the flags may be others than last time.
function(tarn_preprocessor_says condition result)
    unset(TARN_PREPROCESSOR_SAYS CACHE)
    set(CMAKE_REQUIRED_QUIET ON)
    set(CMAKE_TRY_COMPILE_CONFIGURATION "${CMAKE_BUILD_TYPE}")
    check_cxx_source_compiles("
#if !(${condition})
#error no
#endif
int main() {}" TARN_PREPROCESSOR_SAYS)
    set(${result} "${TARN_PREPROCESSOR_SAYS}" PARENT_SCOPE)
    unset(TARN_PREPROCESSOR_SAYS CACHE)
endfunction()

set(tarn_hardening_flags)
if(TARN_HARDENING)
    tarn_preprocessor_says(
        "!defined __SSP__ && !defined __SSP_STRONG__ && !defined __SSP_ALL__ && !defined __SSP_EXPLICIT__"
        unprotected)
    if(unprotected)
        list(APPEND tarn_hardening_flags -fstack-protector-strong)
    endif()
    # The C library's checks work on what the optimiser knows, and it warns where there is none.
    tarn_preprocessor_says("defined __OPTIMIZE__ && !defined _FORTIFY_SOURCE" unfortified)
    if(unfortified)
        list(APPEND tarn_hardening_flags -D_FORTIFY_SOURCE=2)
    endif()
    check_cxx_compiler_flag(-fstack-clash-protection TARN_HAS_STACK_CLASH_PROTECTION)
    if(TARN_HAS_STACK_CLASH_PROTECTION)
        list(APPEND tarn_hardening_flags -fstack-clash-protection)
    endif()
endif()

# Relocations are done when a library is loaded, and read-only from then on.
function(tarn_harden target)
    if(TARN_HARDENING)
        target_compile_options(${target} PRIVATE ${tarn_hardening_flags})
        target_link_options(${target} PRIVATE LINKER:-z,relro,-z,now)
    endif()
endfunction()
