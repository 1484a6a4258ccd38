# Shared compile settings. The presets build with clang: GCC 12 destroys a
# function object twice when it is passed by value into an awaited call
# (co_await run([copy] { ... })), which this code base does everywhere.
# Small helpers below make every folder declare its targets the same way.

add_library(tomekeeper_settings INTERFACE)
target_compile_options(tomekeeper_settings INTERFACE
  -Wall -Wextra -Werror -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
  -Wimplicit-fallthrough -Wmissing-prototypes)
target_compile_definitions(tomekeeper_settings INTERFACE
  G_LOG_DOMAIN="Tomekeeper" GLIB_VERSION_MIN_REQUIRED=GLIB_VERSION_2_74)
if(TOMEKEEPER_SANITIZE)
  # -fsanitize=function is left out: GLib calls every callback through a cast
  # function pointer, and with coroutines clang 14 cannot emit its checks.
  target_compile_options(tomekeeper_settings INTERFACE
    -fsanitize=address,undefined -fno-sanitize=function -fno-omit-frame-pointer
    -fno-sanitize-recover=undefined)
  target_link_options(tomekeeper_settings INTERFACE -fsanitize=address,undefined)
endif()
if(TOMEKEEPER_FUZZ)
  target_compile_options(tomekeeper_settings INTERFACE -fsanitize=fuzzer-no-link)
endif()

# tomekeeper_library(NAME SOURCES ... [PUBLIC_LIBRARIES ...] [PRIVATE_LIBRARIES ...])
# Makes the static library tomekeeper_NAME whose headers are included as
# "NAME/Header.h" from src/.
function(tomekeeper_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;PUBLIC_LIBRARIES;PRIVATE_LIBRARIES" ${ARGN})
  add_library(tomekeeper_${name} STATIC ${ARG_SOURCES})
  target_include_directories(tomekeeper_${name} PUBLIC "${PROJECT_SOURCE_DIR}/src")
  target_link_libraries(tomekeeper_${name}
    PUBLIC tomekeeper_settings ${ARG_PUBLIC_LIBRARIES}
    PRIVATE ${ARG_PRIVATE_LIBRARIES})
endfunction()

# tomekeeper_fuzz_target(NAME SOURCES ... LIBRARIES ...)
# A libFuzzer executable named fuzz_NAME; tools/test gives each a short run.
function(tomekeeper_fuzz_target name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBRARIES" ${ARGN})
  add_executable(fuzz_${name} ${ARG_SOURCES})
  target_link_libraries(fuzz_${name} PRIVATE ${ARG_LIBRARIES} tomekeeper_settings)
  target_link_options(fuzz_${name} PRIVATE -fsanitize=fuzzer)
  set_target_properties(fuzz_${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/fuzzers")
  set_property(GLOBAL APPEND PROPERTY TOMEKEEPER_FUZZ_TARGETS fuzz_${name})
endfunction()

# tomekeeper_hosts_javascriptcore(TARGET)
# For an executable that runs web views under the sanitizers. JavaScriptCore releases its own
# shared_ptr control blocks through the copy of the libstdc++ template that the executable
# exports, and UBSan's vptr check cannot know JavaScriptCore's types: it stops the program at a
# garbage collection, most often after a web view is gone. The executable's own sources leave
# that one check out, and the static libraries' copies stay inside the executable. Called in
# the folder that declares the target, since source properties belong to a folder.
function(tomekeeper_hosts_javascriptcore target)
  if(NOT TOMEKEEPER_SANITIZE)
    return()
  endif()
  # A source property, since it must come after the sanitizer flags of tomekeeper_settings.
  get_target_property(sources ${target} SOURCES)
  set_source_files_properties(${sources} PROPERTIES COMPILE_OPTIONS -fno-sanitize=vptr)
  set(hidden_archives libtomekeeper_test_support.a)
  foreach(library app session views runtime library persistence intake opening model async platform)
    list(APPEND hidden_archives "libtomekeeper_${library}.a")
  endforeach()
  list(JOIN hidden_archives ":" hidden_archives)
  target_link_options(${target} PRIVATE "-Wl,--exclude-libs,${hidden_archives}")
endfunction()
