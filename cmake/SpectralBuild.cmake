# How every target of the project is built.

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "Debug, Release or RelWithDebInfo" FORCE)
endif()
set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR})
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR})

set(SPECTRAL_SANITIZE "" CACHE STRING "Sanitizers to build with, as -fsanitize= takes them")
set(SPECTRAL_GTEST_SOURCE "" CACHE PATH "GoogleTest's source, to build it with what the tests are built with")
option(SPECTRAL_BENCHMARKS "Build what needs the benchmark library" ON)

# Hardening that some compilers lack, or bring by themselves.
include(CheckCXXCompilerFlag)
include(CheckCXXSourceCompiles)
set(SPECTRAL_HARDENING -fstack-protector-strong)
set(flags -fstack-clash-protection -ftrivial-auto-var-init=zero)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "aarch64|arm64")
  list(APPEND flags -mbranch-protection=standard)
endif()
foreach(flag ${flags})
  string(MAKE_C_IDENTIFIER "SPECTRAL_HAS${flag}" has)
  check_cxx_compiler_flag(${flag} ${has})
  if(${has})
    list(APPEND SPECTRAL_HARDENING ${flag})
  endif()
endforeach()
set(CMAKE_REQUIRED_FLAGS -O2)
check_cxx_source_compiles("
#ifdef _FORTIFY_SOURCE
#error a level is set by the compiler or by the flags of whoever builds
#endif
int main() {}" SPECTRAL_SETS_FORTIFY_LEVEL)
unset(CMAKE_REQUIRED_FLAGS)

# Every library and program is in one folder, in the build tree as well; a path of the build tree would
# end in an empty element, which means the working directory.
set(CMAKE_BUILD_WITH_INSTALL_RPATH ON)
set(CMAKE_INSTALL_RPATH "$ORIGIN")

# Warnings, hidden visibility, hardening and sanitizers for one target.
function(spectral_target target)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wconversion -Wshadow
    -fno-semantic-interposition  # an operation of the library that calls another gets that one
    -ffp-contract=off)  # results are the same on machines with and without fused multiply-add
  target_link_options(${target} PRIVATE -Wl,-z,relro,-z,now)
  set_target_properties(${target} PROPERTIES
    CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
  if(SPECTRAL_SANITIZE)
    target_compile_options(${target} PRIVATE
      -fsanitize=${SPECTRAL_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(${target} PRIVATE -fsanitize=${SPECTRAL_SANITIZE})
  else()
    target_compile_options(${target} PRIVATE ${SPECTRAL_HARDENING})
    if(SPECTRAL_SETS_FORTIFY_LEVEL)
      target_compile_definitions(${target} PRIVATE $<$<NOT:$<CONFIG:Debug>>:_FORTIFY_SOURCE=2>)
    endif()
  endif()
  target_compile_definitions(${target} PRIVATE
    _GLIBCXX_ASSERTIONS _LIBCPP_HARDENING_MODE=_LIBCPP_HARDENING_MODE_FAST)
endfunction()

# Exports from a shared library what `map` lists and nothing else, and leaves nothing undefined (the
# sanitizers' runtime comes with the program, so not with them).
function(spectral_export_only target map)
  target_link_options(${target} PRIVATE -Wl,--version-script=${map} -Wl,-Bsymbolic-functions)
  if(NOT SPECTRAL_SANITIZE)
    target_link_options(${target} PRIVATE -Wl,-z,defs)
  endif()
  set_target_properties(${target} PROPERTIES LINK_DEPENDS ${map})
endfunction()
