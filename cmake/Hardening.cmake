# midtable_harden(TARGET): what makes a fault in memory hard to exploit, for whatever links TARGET.
# Sanitizers bring checks of their own, so their builds have none of it but the library's assertions.
# tools/check-hardening proves it all on a built program.
include(CheckCXXCompilerFlag)
include(CheckCXXSourceCompiles)
include(CheckPIESupported)

check_pie_supported(LANGUAGES CXX)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
check_cxx_compiler_flag(-fstack-clash-protection HAVE_STACK_CLASH_PROTECTION)
check_cxx_compiler_flag(-fcf-protection HAVE_CF_PROTECTION)
# Asking for a level that compiler and C library do not know is a warning on every file.
set(CMAKE_REQUIRED_FLAGS "-O2 -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3")
check_cxx_source_compiles("
  #include <features.h>
  static_assert(__USE_FORTIFY_LEVEL == 3);
  int main() {}" HAVE_FORTIFY_LEVEL_3)
unset(CMAKE_REQUIRED_FLAGS)

function(midtable_harden TARGET)
  target_compile_definitions(${TARGET} INTERFACE _GLIBCXX_ASSERTIONS)
  if(MIDTABLE_SANITIZE)
    return()
  endif()
  set(fortify_level $<IF:$<BOOL:${HAVE_FORTIFY_LEVEL_3}>,3,2>)
  target_compile_options(${TARGET} INTERFACE
    -fstack-protector-strong
    $<$<BOOL:${HAVE_STACK_CLASH_PROTECTION}>:-fstack-clash-protection>
    $<$<BOOL:${HAVE_CF_PROTECTION}>:-fcf-protection>
    # Works on optimised code only.
    $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE>
    $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=${fortify_level}>)
  target_link_options(${TARGET} INTERFACE
    LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack)
endfunction()
