# Settings that every target of the project shares, and the functions that make targets.

# Also for generated code, whose warnings are not ours.
add_library(vintrel_hardening INTERFACE)
target_compile_features(vintrel_hardening INTERFACE cxx_std_17)
target_compile_options(vintrel_hardening INTERFACE -fstack-protector-strong)
if(VINTREL_SANITIZE)
  target_compile_options(vintrel_hardening INTERFACE
    -fsanitize=${VINTREL_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(vintrel_hardening INTERFACE -fsanitize=${VINTREL_SANITIZE})
endif()

add_library(vintrel_options INTERFACE)
target_link_libraries(vintrel_options INTERFACE vintrel_hardening)
target_compile_options(vintrel_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror)
if(VINTREL_SANITIZE MATCHES thread)
  # Boost.Asio has fences, of which the sanitizer sees nothing; its queues are under a mutex, too.
  target_compile_options(vintrel_options INTERFACE -Wno-tsan)
  target_compile_definitions(vintrel_options INTERFACE BOOST_ASIO_DISABLE_FENCED_BLOCK)
endif()

set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# vintrel_library(NAME SOURCES ... [PUBLIC targets...] [PRIVATE targets...])
#
# A library of the system. Its headers are included by their path from the project's root
# ("fsm/fsm.h").
function(vintrel_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;PUBLIC;PRIVATE" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name} PUBLIC ${ARG_PUBLIC} PRIVATE vintrel_options ${ARG_PRIVATE})
endfunction()

# What the two functions below have in common: the target, and the FOLDERS of its own headers.
function(vintrel_below_the_system target)
  cmake_parse_arguments(ARG "" "" "SOURCES;PUBLIC;PRIVATE;FOLDERS" ${ARGN})
  list(TRANSFORM ARG_FOLDERS PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/)
  if(ARG_SOURCES)
    add_library(${target} STATIC ${ARG_SOURCES})
    target_include_directories(${target}
      PUBLIC $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}/include>
      PRIVATE ${ARG_FOLDERS})
    target_link_libraries(${target} PUBLIC ${ARG_PUBLIC} PRIVATE vintrel_options ${ARG_PRIVATE})
  else()
    add_library(${target} INTERFACE)
    target_include_directories(${target} INTERFACE ${CMAKE_CURRENT_SOURCE_DIR}/include)
    target_link_libraries(${target} INTERFACE ${ARG_PUBLIC})
  endif()
endfunction()

# vintrel_platform_library(NAME [SOURCES ...] [PUBLIC targets...] [PRIVATE targets...])
#
# A library of the host platform: platform_NAME with the headers below include/, which the unit's
# library has too, and platform_NAME_host, which adds the headers below host/ that exist only here
# (administration, server sides) and that no target of the system may use.
function(vintrel_platform_library name)
  set(target platform_${name})
  vintrel_below_the_system(${target} ${ARGN} FOLDERS host src)
  add_library(${target}_host INTERFACE)
  target_include_directories(${target}_host INTERFACE ${CMAKE_CURRENT_SOURCE_DIR}/host)
  target_link_libraries(${target}_host INTERFACE ${target})
endfunction()

# vintrel_support_library(NAME [SOURCES ...] [PUBLIC targets...] [PRIVATE targets...])
#
# A library that stands behind those of the host platform and that no unit has:
# platform_support_NAME with the headers below include/. Platform libraries link it PRIVATE, the
# simulators and tests directly.
function(vintrel_support_library name)
  vintrel_below_the_system(platform_support_${name} ${ARGN} FOLDERS src)
endfunction()

# vintrel_platform_part(LIBRARY PART SOURCES ... [PUBLIC targets...] [PRIVATE targets...])
#
# One folder below src/ of a platform library that is too large for one: platform_LIBRARY_PART, a
# static library whose headers are included by their path from src/ ("store/store_database.h"). The
# library links its parts, and hides their headers, by $<LINK_ONLY:...>.
function(vintrel_platform_part library part)
  cmake_parse_arguments(ARG "" "" "SOURCES;PUBLIC;PRIVATE" ${ARGN})
  set(target platform_${library}_${part})
  set(root ${PROJECT_SOURCE_DIR}/platform/${library})
  add_library(${target} STATIC ${ARG_SOURCES})
  target_include_directories(${target} PUBLIC ${root}/include ${root}/host ${root}/src)
  target_link_libraries(${target} PUBLIC ${ARG_PUBLIC} PRIVATE vintrel_options ${ARG_PRIVATE})
endfunction()

# vintrel_executable(NAME SOURCES ... LIBRARIES targets...)
#
# A program; it lands in <build>/bin.
function(vintrel_executable name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBRARIES" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name} PRIVATE vintrel_options ${ARG_LIBRARIES})
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
endfunction()

# vintrel_test(NAME SOURCES ... LIBRARIES targets... [TIMEOUT seconds] [LABELS labels...])
#
# A GoogleTest program whose cases CTest runs one by one. The timeout only guards against hanging.
function(vintrel_test name)
  cmake_parse_arguments(ARG "" "TIMEOUT" "SOURCES;LIBRARIES;LABELS" ${ARGN})
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 120)
  endif()
  add_executable(${name} ${ARG_SOURCES})
  target_include_directories(${name} PRIVATE
    ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/tests ${PROJECT_SOURCE_DIR}/tests/support)
  target_link_libraries(${name} PRIVATE vintrel_options ${ARG_LIBRARIES} GTest::gmock_main)
  gtest_discover_tests(${name}
    TEST_PREFIX ${name}.
    DISCOVERY_TIMEOUT 60
    PROPERTIES TIMEOUT ${ARG_TIMEOUT} LABELS "${ARG_LABELS}")
endfunction()
