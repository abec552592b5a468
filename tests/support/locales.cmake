# Locales that no Debian system has by itself, made from the package `locales`, so that text tests
# meet a multibyte encoding that is not UTF-8, a Chinese desktop and the Turkish letters. A test
# takes them with
#   ENV ${VCTK_LOCALE_ENV} DEPENDS locales
# and skips what setlocale refuses when the package is not there.
find_program(VCTK_LOCALEDEF localedef)
set(VCTK_LOCALE_FOLDER ${CMAKE_CURRENT_BINARY_DIR}/locales)
set(VCTK_LOCALE_ENV LOCPATH=${VCTK_LOCALE_FOLDER}
  LSAN_OPTIONS=suppressions=${CMAKE_CURRENT_SOURCE_DIR}/support/leaks.supp)
set(VCTK_LOCALES "")
foreach(name zh_CN.GB18030 zh_CN.UTF-8 tr_TR.UTF-8)
  string(REPLACE "." ";" parts ${name})
  list(GET parts 0 language)
  list(GET parts 1 encoding)
  set(source /usr/share/i18n/locales/${language})
  if(VCTK_LOCALEDEF AND EXISTS ${source})
    set(made ${VCTK_LOCALE_FOLDER}/${name}/LC_CTYPE)
    add_custom_command(OUTPUT ${made}
      COMMAND ${CMAKE_COMMAND} -E make_directory ${VCTK_LOCALE_FOLDER}
      COMMAND ${VCTK_LOCALEDEF} --no-archive -i ${language} -f ${encoding}
              ${VCTK_LOCALE_FOLDER}/${name}
      DEPENDS ${source} COMMENT "Making locale ${name}")
    list(APPEND VCTK_LOCALES ${made})
  endif()
endforeach()
add_custom_target(locales DEPENDS ${VCTK_LOCALES})
