# Writes a bill of materials of what was built, as SPDX 2.3 in JSON:
#   cmake -D OUT=vctk.spdx.json -D VERSION=0.1.0 -D "FILES=lib/libVELCrypto64.so|nlohmann-json3-dev;..."
#         -D READELF=readelf -D "FOLDERS=/usr/lib/x86_64-linux-gnu;..." -P sbom.cmake
# FILES are programs and libraries, each with the Debian packages whose headers are compiled into it.
# What a file is linked with is read from it, and its Debian package asked of dpkg. The same files
# give the same bytes: the time is $SOURCE_DATE_EPOCH, else that of the commit.
cmake_policy(VERSION 3.25)

# SPDX expressions for Debian packages, by the beginning of their names.
set(LICENCES
  "libc6=LGPL-2.1-or-later"
  "libgcc-s1=GPL-3.0-or-later WITH GCC-exception-3.1"
  "libstdc\\+\\+6=GPL-3.0-or-later WITH GCC-exception-3.1"
  "libssl3=Apache-2.0"
  "libassuan0=LGPL-2.1-or-later"
  "libgpg-error0=LGPL-2.1-or-later"
  "libp11-kit0=BSD-3-Clause"
  "libcli11-dev=BSD-3-Clause"
  "nlohmann-json3-dev=MIT"
  "libqt[56]=LGPL-3.0-only OR GPL-2.0-only OR GPL-3.0-only")

function(licence_of package result)
  set(${result} NOASSERTION PARENT_SCOPE)
  foreach(line IN LISTS LICENCES)
    string(REGEX REPLACE "=.*" "" name "${line}")
    string(REGEX REPLACE "^[^=]*=" "" licence "${line}")
    if(package MATCHES "^${name}")
      set(${result} ${licence} PARENT_SCOPE)
    endif()
  endforeach()
endfunction()

function(quoted text result)
  string(REGEX REPLACE "([\"\\])" "\\\\\\1" text "${text}")
  set(${result} "\"${text}\"" PARENT_SCOPE)
endfunction()

# An identifier may hold letters, digits, dots and hyphens.
function(id_of name result)
  string(REGEX REPLACE "[^A-Za-z0-9.-]" "-" name "${name}")
  set(${result} "SPDXRef-${name}" PARENT_SCOPE)
endfunction()

# add_package(NAME VERSION LICENCE PURPOSE [SUPPLIER text] [FILE path] [PURL text]): once for each name.
function(add_package name version licence purpose)
  cmake_parse_arguments(P "" "SUPPLIER;FILE;PURL" "" ${ARGN})
  id_of("${name}" id)
  if("${id}" IN_LIST known)
    return()
  endif()
  set(item "{}")
  foreach(field "SPDXID=${id}" "name=${name}" "versionInfo=${version}" "licenseConcluded=${licence}"
          "licenseDeclared=${licence}" "copyrightText=NOASSERTION" "downloadLocation=NOASSERTION"
          "primaryPackagePurpose=${purpose}" "supplier=${P_SUPPLIER}")
    string(REGEX REPLACE "=.*" "" key "${field}")
    string(REGEX REPLACE "^[^=]*=" "" value "${field}")
    quoted("${value}" value)
    string(JSON item SET "${item}" ${key} "${value}")
  endforeach()
  string(JSON item SET "${item}" filesAnalyzed false)
  if(P_FILE)
    file(SHA256 ${P_FILE} hash)
    string(JSON item SET "${item}" checksums
           "[{\"algorithm\": \"SHA256\", \"checksumValue\": \"${hash}\"}]")
    string(APPEND all_hashes ${hash})
    set(all_hashes "${all_hashes}" PARENT_SCOPE)
  endif()
  if(P_PURL)
    string(JSON item SET "${item}" externalRefs "[{\"referenceCategory\": \"PACKAGE-MANAGER\",
      \"referenceType\": \"purl\", \"referenceLocator\": \"${P_PURL}\"}]")
  endif()
  list(LENGTH known count)
  string(JSON document SET "${document}" packages ${count} "${item}")
  set(document "${document}" PARENT_SCOPE)
  set(known ${known} ${id} PARENT_SCOPE)
endfunction()

function(relate from kind to)
  id_of("${from}" from)
  id_of("${to}" to)
  if("${from} ${kind} ${to}" IN_LIST related)
    return()
  endif()
  set(related ${related} "${from} ${kind} ${to}" PARENT_SCOPE)
  string(JSON count LENGTH "${document}" relationships)
  string(JSON document SET "${document}" relationships ${count} "{\"spdxElementId\": \"${from}\",
    \"relationshipType\": \"${kind}\", \"relatedSpdxElement\": \"${to}\"}")
  set(document "${document}" PARENT_SCOPE)
endfunction()

# add_debian(PACKAGE [FILE path]): an installed package, "name:arch" or "name".
macro(add_debian package)
  execute_process(COMMAND dpkg-query -W -f "\${Version} \${Architecture}" ${package}
                  OUTPUT_VARIABLE found ERROR_QUIET)
  string(REGEX REPLACE ":.*" "" short "${package}")
  licence_of("${short}" licence)
  if(found MATCHES "^([^ ]+) ([^ ]+)$")
    set(version ${CMAKE_MATCH_1})
    set(architecture ${CMAKE_MATCH_2})
    string(REPLACE "+" "%2B" purl "pkg:deb/debian/${short}@${version}?arch=${architecture}")
    add_package("${short}" "${version}" "${licence}" LIBRARY SUPPLIER "Organization: Debian"
                PURL "${purl}" ${ARGN})
  else()
    add_package("${short}" NOASSERTION "${licence}" LIBRARY SUPPLIER NOASSERTION ${ARGN})
  endif()
endmacro()

# The file that the linker took for a name, and its package; the name itself when dpkg knows none.
function(find_linked name path package)
  set(${path} "" PARENT_SCOPE)
  set(${package} ${name} PARENT_SCOPE)
  foreach(folder IN LISTS FOLDERS)
    if(EXISTS ${folder}/${name})
      string(REGEX REPLACE "^/usr" "" moved ${folder}/${name})
      set(${path} ${folder}/${name} PARENT_SCOPE)
      foreach(candidate ${folder}/${name} ${moved} /usr${folder}/${name})
        execute_process(COMMAND dpkg-query -S ${candidate} OUTPUT_VARIABLE found ERROR_QUIET)
        if(found MATCHES "^([^ ,]+): /")
          set(${package} ${CMAKE_MATCH_1} PARENT_SCOPE)
          return()
        endif()
      endforeach()
      return()
    endif()
  endforeach()
endfunction()

# add_built(FILE|PACKAGE...): one of ours with all that it needs.
macro(add_built entry)
  string(REPLACE "|" ";" parts "${entry}")
  list(POP_FRONT parts file)
  get_filename_component(built ${file} NAME)
  set(purpose APPLICATION)
  if(built MATCHES "\\.so")
    set(purpose LIBRARY)
  endif()
  add_package(${built} ${VERSION} Apache-2.0 ${purpose} SUPPLIER NOASSERTION FILE ${file})
  relate(DOCUMENT DESCRIBES ${built})
  foreach(compiled_in IN LISTS parts)
    add_debian(${compiled_in})
    relate(${built} STATIC_LINK ${compiled_in})
  endforeach()
  execute_process(COMMAND ${READELF} -d ${file} OUTPUT_VARIABLE dynamic
                  COMMAND_ERROR_IS_FATAL ANY)
  # Brackets in a list would hold its elements together.
  string(REGEX REPLACE "[][]" "|" dynamic "${dynamic}")
  string(REGEX MATCHALL "\\(NEEDED\\)[^\n|]*\\|[^|]+" needed "${dynamic}")
  list(TRANSFORM needed REPLACE ".*\\|" "")
  list(SORT needed)
  foreach(name IN LISTS needed)
    if(name MATCHES "^libVEL")
      relate(${built} DYNAMIC_LINK ${name})
    else()
      find_linked(${name} path package)
      add_debian(${package})
      string(REGEX REPLACE ":.*" "" package "${package}")
      relate(${built} DYNAMIC_LINK ${package})
    endif()
  endforeach()
endmacro()

if("$ENV{SOURCE_DATE_EPOCH}" STREQUAL "")
  execute_process(COMMAND git -C ${CMAKE_CURRENT_LIST_DIR} log -1 --format=%ct
                  OUTPUT_VARIABLE seconds OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
  if(NOT seconds MATCHES "^[0-9]+$")
    set(seconds 0)
  endif()
  set(ENV{SOURCE_DATE_EPOCH} ${seconds})
endif()
string(TIMESTAMP created "%Y-%m-%dT%H:%M:%SZ" UTC)

set(known "")
set(related "")
set(all_hashes "")
set(document "{\"spdxVersion\": \"SPDX-2.3\", \"dataLicense\": \"CC0-1.0\",
  \"SPDXID\": \"SPDXRef-DOCUMENT\", \"name\": \"vctk-${VERSION}\",
  \"creationInfo\": {\"created\": \"${created}\", \"creators\": [\"Tool: vctk-sbom.cmake\"]},
  \"packages\": [], \"relationships\": []}")
foreach(entry IN LISTS FILES)
  add_built("${entry}")
endforeach()
if(FILES MATCHES libVELCrypto64)
  relate(libVELCrypto64.so RUNTIME_DEPENDENCY_OF libVELClientTK64.so)
endif()
string(UUID uuid NAMESPACE 6ba7b812-9dad-11d1-80b4-00c04fd430c8 NAME "${VERSION} ${all_hashes}"
       TYPE SHA1)
string(JSON document SET "${document}" documentNamespace "\"urn:uuid:${uuid}\"")
file(WRITE ${OUT} "${document}\n")
