# The target `vintok_settings` carries the warnings, and the sanitizers where asked for, to everything
# that is built here and to nothing that is installed.
add_library(vintok_settings INTERFACE)
if(MSVC)
  # Without what it says of each exported class that has members of the standard library's types.
  target_compile_options(vintok_settings INTERFACE
    /W4 /wd4251 /wd4275 /EHsc /utf-8 /permissive- /Zc:__cplusplus
    $<$<BOOL:${VINTOK_WERROR}>:/WX>)
  target_compile_definitions(vintok_settings INTERFACE NOMINMAX _CRT_SECURE_NO_WARNINGS)
elseif(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
  target_compile_options(vintok_settings INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion
    -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=
    $<$<BOOL:${VINTOK_WERROR}>:-Werror>)
  # Log lines name source files from the project's folder. A compiler cache may make the compiler's
  # path one from the build folder; that is cut off too.
  file(RELATIVE_PATH from_build ${PROJECT_BINARY_DIR} ${PROJECT_SOURCE_DIR})
  if(from_build MATCHES "^\\.\\./")
    target_compile_options(vintok_settings INTERFACE -ffile-prefix-map=${from_build}=)
  endif()
endif()
# Addresses have virtual operations but no virtual destructor, and live in vectors: there Clang takes
# the container's own call of the destructor for a mistake.
target_compile_options(vintok_settings INTERFACE
  $<$<CXX_COMPILER_ID:Clang>:-Wno-delete-non-abstract-non-virtual-dtor>)

if(VINTOK_SANITIZE)
  set(kinds_address address,undefined)
  set(kinds_thread thread)
  if(NOT DEFINED kinds_${VINTOK_SANITIZE})
    message(FATAL_ERROR "VINTOK_SANITIZE is address or thread, not ${VINTOK_SANITIZE}")
  endif()
  set(kinds ${kinds_${VINTOK_SANITIZE}})
  target_compile_options(vintok_settings INTERFACE
    -fsanitize=${kinds} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(vintok_settings INTERFACE -fsanitize=${kinds})
endif()
if(VINTOK_FUZZ)
  # Comparisons of texts are seen where they call memcmp; to trace each one would cost a fifth.
  target_compile_options(vintok_settings INTERFACE
    -fsanitize=fuzzer-no-link -fno-sanitize-coverage=trace-cmp)
endif()
if(MINGW)
  # Programs and the library carry the compiler's runtime with them: nothing to install beside them.
  target_link_options(vintok_settings INTERFACE -static-libgcc -static-libstdc++
    -Wl,-Bstatic,--whole-archive -lwinpthread -Wl,--no-whole-archive,-Bdynamic)
endif()

find_package(Threads REQUIRED)
find_program(CCACHE_EXECUTABLE ccache)
if(CCACHE_EXECUTABLE)
  set(CMAKE_C_COMPILER_LAUNCHER ${CCACHE_EXECUTABLE})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE_EXECUTABLE})
endif()
