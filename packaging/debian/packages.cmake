# One package for each component. Their files are those of the install rules for the prefix /usr.
set(docs ${CMAKE_INSTALL_PREFIX}/share/doc)
find_program(GZIP gzip REQUIRED)

# debian_package(COMPONENT NAME SECTION SUMMARY DETAILS [DEPENDS text] [RECOMMENDS text])
function(debian_package component name section summary details)
  cmake_parse_arguments(P "" "DEPENDS;RECOMMENDS" "" ${ARGN})
  string(TOUPPER ${component} key)
  set(key CPACK_DEBIAN_${key})
  set(${key}_PACKAGE_NAME ${name} PARENT_SCOPE)
  set(${key}_PACKAGE_SECTION ${section} PARENT_SCOPE)
  set(${key}_DESCRIPTION "${summary}\n${details}" PARENT_SCOPE)
  set(${key}_PACKAGE_DEPENDS "${P_DEPENDS}" PARENT_SCOPE)
  set(${key}_PACKAGE_RECOMMENDS "${P_RECOMMENDS}" PARENT_SCOPE)
  if(section STREQUAL libs)
    # dpkg refreshes the loader's cache.
    set(${key}_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_SOURCE_DIR}/debian/triggers PARENT_SCOPE)
  endif()
  set(CPACK_COMPONENTS_ALL ${CPACK_COMPONENTS_ALL} ${component} PARENT_SCOPE)
  install(FILES ${CMAKE_CURRENT_SOURCE_DIR}/debian/copyright ${CMAKE_CURRENT_BINARY_DIR}/changelog.gz
          DESTINATION ${docs}/${name} COMPONENT ${component})
  set(overrides ${CMAKE_CURRENT_SOURCE_DIR}/debian/${name}.lintian-overrides)
  if(EXISTS ${overrides})
    install(FILES ${overrides} DESTINATION share/lintian/overrides RENAME ${name}
            COMPONENT ${component})
  endif()
endfunction()

file(STRINGS debian/changelog newest LIMIT_COUNT 1)
if(NOT newest MATCHES "^vctk \\(${PROJECT_VERSION}\\) ")
  message(FATAL_ERROR "packaging/debian/changelog has no entry for version ${PROJECT_VERSION}")
endif()
execute_process(COMMAND ${GZIP} -9nc ${CMAKE_CURRENT_SOURCE_DIR}/debian/changelog
                OUTPUT_FILE ${CMAKE_CURRENT_BINARY_DIR}/changelog.gz COMMAND_ERROR_IS_FATAL ANY)

set(this "(= ${PROJECT_VERSION})")
debian_package(interface libvelinterface64 libs "Win32 meaning over POSIX for the signing toolkit"
  "Heap, text, file, path, profile and time functions with the meaning that\n\
the signing toolkit and its device libraries expect, over POSIX.")
debian_package(toolkit libvelclienttk64 libs "client-side signing toolkit"
  "Signs data with the certificates in a user's USB keys and other crypto\n\
devices: PKCS#1 and PKCS#7, RSA and SM2. Programs call plain C functions."
  DEPENDS "libvelinterface64 ${this}" RECOMMENDS libvelcrypto64)
debian_package(development libvelclienttk64-dev libdevel
  "client-side signing toolkit (development files)"
  "The C header of the signing toolkit, and how pkg-config and CMake find it."
  DEPENDS "libvelclienttk64 ${this}")
if(TARGET VELCrypto64)
  debian_package(device libvelcrypto64 libs "open device library of the signing toolkit"
    "Keys, PINs and signatures for the signing toolkit. It lies in a folder of\n\
its own at the end of the library path, so that a maker's device library is\n\
used instead where one is installed."
    DEPENDS "libvelinterface64 ${this}")
  # Folders that a maker's library may lie in come first.
  set(own_folder ${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/vel)
  file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/path.conf
       "# The open device library; a maker's is found before it.\n/usr/lib\n/lib\n${own_folder}\n")
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/path.conf DESTINATION /etc/ld.so.conf.d
          RENAME zzz-libvelcrypto64-${CMAKE_LIBRARY_ARCHITECTURE}.conf COMPONENT device)
  file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/conffiles
       "/etc/ld.so.conf.d/zzz-libvelcrypto64-${CMAKE_LIBRARY_ARCHITECTURE}.conf\n")
  list(APPEND CPACK_DEBIAN_DEVICE_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_BINARY_DIR}/conffiles)
endif()
if(TARGET vctk)
  debian_package(tools vctk utils "signs files with certificates in crypto devices"
    "Lists the certificates in the user's keys and signs files with them, for\n\
the terminal and for scripts."
    DEPENDS "libvelclienttk64 ${this}" RECOMMENDS libvelcrypto64)
endif()
if(TARGET vctk-choose-certificate)
  debian_package(dialog vctk-choose-certificate utils "certificate window of the signing toolkit"
    "Lets the user choose a certificate when a program signs. The open device\n\
library runs it; no program links it."
    RECOMMENDS libvelcrypto64)
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME vctk)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "Signing Toolkit Developers <vctk@example.org>")
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
  GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # it would stand before each package's own
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR}/lib)
if(CMAKE_SYSTEM_PROCESSOR STREQUAL aarch64)
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE arm64)
else()
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE amd64)
endif()
include(CPack)
