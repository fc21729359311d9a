# cJSON, built into the library with the number model of third_party/cjson/number-model.patch.
#
# The source is Debian's package, fetched when it is not there; it is copied into the build tree and
# changed there, never where it lies.
#
#   vexil_cjson          object library for the archive
#   vexil_cjson_headers  where the changed cJSON.h is

get_filename_component(VEXIL_CJSON_ROOT "${CMAKE_CURRENT_LIST_DIR}" DIRECTORY)
set(VEXIL_CJSON_SOURCE "${VEXIL_CJSON_ROOT}/.deps/cjson" CACHE PATH "Unpacked cJSON source package")

set(VEXIL_CJSON_OURS "${VEXIL_CJSON_ROOT}/third_party/cjson")
set(VEXIL_CJSON_PATCH "${VEXIL_CJSON_OURS}/number-model.patch")
set(VEXIL_CJSON_DIR "${CMAKE_BINARY_DIR}/cjson")

if(NOT EXISTS "${VEXIL_CJSON_SOURCE}/cJSON.c" OR NOT EXISTS "${VEXIL_CJSON_SOURCE}/cJSON.h")
  message(STATUS "Fetching the cJSON source package")
  execute_process(
    COMMAND "${VEXIL_CJSON_ROOT}/scripts/fetch-cjson.sh" "${VEXIL_CJSON_SOURCE}"
    RESULT_VARIABLE fetch_result
    OUTPUT_VARIABLE fetch_output
    ERROR_VARIABLE fetch_output)
  if(NOT fetch_result EQUAL 0)
    message(FATAL_ERROR "The cJSON source is missing and could not be fetched.\n${fetch_output}"
      "Run scripts/fetch-cjson.sh, or set VEXIL_CJSON_SOURCE to an unpacked source package.")
  endif()
endif()

set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
  "${VEXIL_CJSON_PATCH}" "${VEXIL_CJSON_SOURCE}/cJSON.c" "${VEXIL_CJSON_SOURCE}/cJSON.h")

# The release from the header; Debian's revision, where there is one, from the package's changelog.
function(vexil_cjson_version result)
  set(version "")
  foreach(part MAJOR MINOR PATCH)
    file(STRINGS "${VEXIL_CJSON_SOURCE}/cJSON.h" line REGEX "#define CJSON_VERSION_${part} ")
    string(REGEX MATCH "[0-9]+$" number "${line}")
    list(APPEND version "${number}")
  endforeach()
  list(JOIN version "." version)
  if(EXISTS "${VEXIL_CJSON_SOURCE}/debian/changelog")
    file(STRINGS "${VEXIL_CJSON_SOURCE}/debian/changelog" line LIMIT_COUNT 1)
    if(line MATCHES "\\(([^)]+)\\)")
      string(APPEND version " (Debian ${CMAKE_MATCH_1})")
    endif()
  endif()
  set(${result} "${version}" PARENT_SCOPE)
endfunction()

function(vexil_cjson_apply_patch)
  set(inputs "${VEXIL_CJSON_SOURCE}/cJSON.c" "${VEXIL_CJSON_SOURCE}/cJSON.h" "${VEXIL_CJSON_PATCH}")
  set(state "")
  foreach(input IN LISTS inputs)
    file(SHA256 "${input}" hash)
    string(APPEND state "${hash}\n")
  endforeach()
  set(stamp "${VEXIL_CJSON_DIR}/inputs.sha256")
  if(EXISTS "${stamp}" AND EXISTS "${VEXIL_CJSON_DIR}/cJSON.c" AND EXISTS "${VEXIL_CJSON_DIR}/cJSON.h")
    file(READ "${stamp}" known)
    if(known STREQUAL state)
      return()
    endif()
  endif()

  vexil_cjson_version(version)
  find_program(VEXIL_PATCH_PROGRAM patch)
  mark_as_advanced(VEXIL_PATCH_PROGRAM)
  if(NOT VEXIL_PATCH_PROGRAM)
    message(FATAL_ERROR "The program patch is missing; install the package of that name.")
  endif()
  set(scratch "${VEXIL_CJSON_DIR}/scratch")
  file(REMOVE_RECURSE "${scratch}")
  file(REMOVE "${stamp}")
  file(COPY "${VEXIL_CJSON_SOURCE}/cJSON.c" "${VEXIL_CJSON_SOURCE}/cJSON.h" DESTINATION "${scratch}")
  execute_process(
    COMMAND "${VEXIL_PATCH_PROGRAM}" --fuzz=0 --batch --forward --no-backup-if-mismatch -p1 -i "${VEXIL_CJSON_PATCH}"
    WORKING_DIRECTORY "${scratch}"
    RESULT_VARIABLE patch_result
    OUTPUT_VARIABLE patch_output
    ERROR_VARIABLE patch_output)
  if(NOT patch_result EQUAL 0)
    file(REMOVE_RECURSE "${scratch}")
    message(FATAL_ERROR "third_party/cjson/number-model.patch does not apply to cJSON ${version} in "
      "${VEXIL_CJSON_SOURCE}.\n${patch_output}"
      "Fetch the release that the patch is written for, or renew the patch as third_party/cjson/README.md describes.")
  endif()
  # Only what differs is touched, so a new configuration alone compiles nothing anew.
  foreach(name cJSON.c cJSON.h)
    file(COPY_FILE "${scratch}/${name}" "${VEXIL_CJSON_DIR}/${name}" ONLY_IF_DIFFERENT)
  endforeach()
  file(REMOVE_RECURSE "${scratch}")
  file(WRITE "${stamp}" "${state}")
  message(STATUS "cJSON ${version} with the integer number model")
endfunction()

vexil_cjson_apply_patch()

add_library(vexil_cjson_headers INTERFACE)
target_include_directories(vexil_cjson_headers INTERFACE "${VEXIL_CJSON_DIR}")

# Compiled as a kernel module's source would be: no C library behind it, no floating-point register.
add_library(vexil_cjson OBJECT "${VEXIL_CJSON_DIR}/cJSON.c")
set_target_properties(vexil_cjson PROPERTIES
  POSITION_INDEPENDENT_CODE ON
  C_STANDARD 11
  C_EXTENSIONS ON
)
target_compile_definitions(vexil_cjson PRIVATE CJSON_NESTING_LIMIT=48)
target_include_directories(vexil_cjson PRIVATE "${VEXIL_CJSON_OURS}/include" "${VEXIL_CJSON_OURS}" "${VEXIL_CJSON_DIR}")
target_compile_options(vexil_cjson PRIVATE -ffreestanding -nostdinc -fno-stack-protector
  -Wall -Wextra -Werror=implicit-function-declaration)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|aarch64|arm64)$")
  target_compile_options(vexil_cjson PRIVATE -mgeneral-regs-only)
endif()
