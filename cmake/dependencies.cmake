# The libraries that scripts/bootstrap.sh has cross-built, as imported targets: qorv::ace, qorv::tiff, qorv::spandsp and,
# for the benchmarks, qorv::benchmark; and GoogleTest, built here from its Debian source package: GTest::gtest,
# GTest::gmock and their _main forms.

# The same folder as in scripts/paths.sh: named after the pins, in a cache outside the tree.
file(SHA256 ${CMAKE_SOURCE_DIR}/scripts/third-party.pins qorv_key)
string(SUBSTRING ${qorv_key} 0 16 qorv_key)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/scripts/third-party.pins)
if(NOT "$ENV{QORV_CACHE}" STREQUAL "")
    set(qorv_cache "$ENV{QORV_CACHE}")
elseif(NOT "$ENV{XDG_CACHE_HOME}" STREQUAL "")
    set(qorv_cache "$ENV{XDG_CACHE_HOME}/qorvtsp")
else()
    set(qorv_cache "$ENV{HOME}/.cache/qorvtsp")
endif()
# A value given by hand is kept; the default follows the pins, also in a build folder that knew older ones.
set(QORV_DEPS "" CACHE PATH "Folder of the cross-built libraries, when not the one that scripts/bootstrap.sh made")
set(qorv_deps "${QORV_DEPS}")
if(qorv_deps STREQUAL "")
    set(qorv_deps "${qorv_cache}/deps-${qorv_key}")
endif()
if(NOT EXISTS "${qorv_deps}/lib/libACE.a" OR NOT EXISTS /usr/src/googletest/CMakeLists.txt)
    message(FATAL_ERROR "The cross-built libraries or GoogleTest's sources are missing: run scripts/bootstrap.sh first")
endif()

function(qorv_import name archive)
    add_library(qorv::${name} STATIC IMPORTED GLOBAL)
    set_target_properties(qorv::${name} PROPERTIES
        IMPORTED_LOCATION "${qorv_deps}/lib/${archive}"
        INTERFACE_INCLUDE_DIRECTORIES "${qorv_deps}/include")
    # Imported targets' headers count as system headers: their warnings are not ours.
endfunction()

qorv_import(ace libACE.a)
set_target_properties(qorv::ace PROPERTIES INTERFACE_COMPILE_DEFINITIONS ACE_AS_STATIC_LIBS)
target_link_libraries(qorv::ace INTERFACE ws2_32 mswsock iphlpapi netapi32)

qorv_import(tiff libtiff.a)

qorv_import(spandsp libspandsp.a)
# See build_spandsp in scripts/bootstrap.sh for why its users need this header in front of everything.
target_compile_options(qorv::spandsp INTERFACE "SHELL:-include \"${qorv_deps}/include/spandsp-mingw.h\"")
target_link_libraries(qorv::spandsp INTERFACE qorv::tiff ws2_32)

qorv_import(benchmark libbenchmark.a)
set_target_properties(qorv::benchmark PROPERTIES INTERFACE_COMPILE_DEFINITIONS BENCHMARK_STATIC_DEFINE)
target_link_libraries(qorv::benchmark INTERFACE shlwapi)

# GoogleTest comes as sources. Its own warnings are its own affair.
# A build needs no Wine: test programs are asked for their tests when ctest starts.
if(NOT DEFINED CMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE)
    set(CMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE PRE_TEST)
endif()
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
foreach(library gtest gtest_main gmock gmock_main)
    target_compile_options(${library} PRIVATE -w)
    if(NOT TARGET GTest::${library})
        add_library(GTest::${library} ALIAS ${library})
    endif()
endforeach()
