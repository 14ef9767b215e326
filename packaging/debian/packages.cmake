# The Debian packages, one for each component: cpack -G DEB in a build with the preset "package".
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tavoserviceconf)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_PACKAGE_CONTACT "The tavoserviceconf developers <tavoserviceconf@example.invalid>")
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/lib)

# tavo_debian_package(COMPONENT NAME SECTION DESCRIPTION [DEPENDS...]): the first line of the
# description is its summary. DEPENDS names packages of this project, of the same version.
macro(tavo_debian_package COMPONENT NAME SECTION DESCRIPTION)
  string(TOUPPER ${COMPONENT} component)
  list(APPEND CPACK_COMPONENTS_ALL ${COMPONENT})
  set(CPACK_DEBIAN_${component}_PACKAGE_NAME ${NAME})
  set(CPACK_DEBIAN_${component}_PACKAGE_SECTION ${SECTION})
  set(CPACK_DEBIAN_${component}_DESCRIPTION "${DESCRIPTION}")
  set(depends ${ARGN})
  list(TRANSFORM depends APPEND " (= ${PROJECT_VERSION})")
  list(JOIN depends ", " CPACK_DEBIAN_${component}_PACKAGE_DEPENDS)
  install(FILES ${CMAKE_CURRENT_LIST_DIR}/copyright
          DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${NAME} COMPONENT ${COMPONENT} EXCLUDE_FROM_ALL)
endmacro()

# An appliance has its own platform libraries.
set(platform_package)
if(NOT TAVO_SYSTEM_PLATFORM)
  set(platform_package libtavoplatform7)
  tavo_debian_package(platform libtavoplatform7 libs
"platform libraries of the appliance (host build)
Host builds of the libraries that libtavoserviceconf7 needs, for machines
that are not appliances.")
endif()

tavo_debian_package(library libtavoserviceconf7 libs
"service configuration files of the appliance (library)
Reads the files in which the components of a network-attached storage
appliance declare their network services."
  ${platform_package})

tavo_debian_package(development libtavoserviceconf-dev libdevel
"service configuration files of the appliance (development files)
The header, the pkg-config file and the CMake package that a program is
built with."
  libtavoserviceconf7 ${platform_package})

tavo_debian_package(servicetool servicetool admin
"service configuration files of the appliance (command-line tool)
Lists, shows and checks service configuration files."
  libtavoserviceconf7 ${platform_package})

include(CPack)
