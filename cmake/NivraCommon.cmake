# Settings shared by every target of the project.

set(CMAKE_POSITION_INDEPENDENT_CODE ON)

if(WIN32)
  # Link the GCC runtime statically: Windows programs under Wine (and on a user's machine) then
  # need no mingw runtime DLLs next to them.
  add_compile_definitions(UNICODE _UNICODE WIN32_LEAN_AND_MEAN NOMINMAX _WIN32_WINNT=0x0601)
  add_link_options(-static -static-libgcc -static-libstdc++)
  set(NIVRA_WINE_PREFIX ${CMAKE_BINARY_DIR}/wineprefix CACHE PATH "Wine prefix owned by this build")
  configure_file(${CMAKE_SOURCE_DIR}/scripts/wine-run.sh.in ${CMAKE_BINARY_DIR}/wine-run.sh @ONLY)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_BINARY_DIR}/wine-run.sh)
else()
  if(NIVRA_SANITIZE)
    add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=all)
    add_link_options(-fsanitize=address,undefined)
  endif()
endif()

add_compile_options(-Wall -Wextra -Wno-unused-parameter)

# GoogleTest: Debian's native package natively, built from its sources for Windows.
if(WIN32)
  set(gtest_force_shared_crt OFF CACHE BOOL "" FORCE)
  set(BUILD_GMOCK OFF CACHE BOOL "" FORCE)
  set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
  add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
  add_library(nivra_gtest INTERFACE)
  target_link_libraries(nivra_gtest INTERFACE gtest gtest_main)
else()
  find_package(GTest REQUIRED)
  add_library(nivra_gtest INTERFACE)
  target_link_libraries(nivra_gtest INTERFACE GTest::gtest GTest::gtest_main)
endif()
include(GoogleTest)

# nivra_add_gtest(name SOURCES... [LIBS ...] [LABELS ...] [RESOURCE_LOCK lock] [RUN_SERIAL]): one
# test program whose cases CTest lists one by one. Discovery runs before the tests, not at build
# time, so a build never starts Wine. Cases of programs that share a RESOURCE_LOCK never run
# concurrently; RUN_SERIAL cases run with no other test beside them.
function(nivra_add_gtest name)
  cmake_parse_arguments(T "RUN_SERIAL" "RESOURCE_LOCK" "SOURCES;LIBS;LABELS" ${ARGN})
  add_executable(${name} ${T_SOURCES})
  target_link_libraries(${name} PRIVATE ${T_LIBS} nivra_gtest)
  # One label that joins the side and the groups ("wine-provider-loader"): the discovery step
  # cannot carry a list-valued property, and `ctest -L` matches by regular expression anyway.
  if(WIN32)
    set(side wine)
  else()
    set(side native)
  endif()
  string(JOIN "-" label ${side} ${T_LABELS})
  set(extra)
  if(T_RESOURCE_LOCK)
    list(APPEND extra RESOURCE_LOCK ${T_RESOURCE_LOCK})
  endif()
  if(T_RUN_SERIAL)
    list(APPEND extra RUN_SERIAL TRUE)
  endif()
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 120
                       PROPERTIES LABELS ${label} TIMEOUT 300 ${extra})
endfunction()

# nivra_dll_part(name): the folder's sources (*.cpp, *.rc) as an object library that is linked
# whole into nivracsp.dll; an interface library while the folder has no sources yet.
function(nivra_dll_part name)
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp ${CMAKE_CURRENT_SOURCE_DIR}/*.rc)
  if(sources)
    add_library(${name} OBJECT ${sources})
    target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR})
    target_link_libraries(${name} PUBLIC nivracrypto)
  else()
    add_library(${name} INTERFACE)
  endif()
endfunction()
