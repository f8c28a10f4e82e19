# What cpack makes: a Debian package of each component, and with -G TGZ one tarball of all.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "Seed 0332e004 maintainers <maintainers@users.noreply.c-seed-0332e004.example>")
set(CPACK_COMPONENTS_ALL runtime development)
if(IFS_TOOLS)
    list(APPEND CPACK_COMPONENTS_ALL tools)
endif()
set(CPACK_PACKAGE_FILE_NAME ifs-${PROJECT_VERSION}-${CMAKE_SYSTEM_PROCESSOR})
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
if(CMAKE_CROSSCOMPILING)
    # dpkg-shlibdeps would name the packages of the cross compiler.
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${CMAKE_SYSTEM_PROCESSOR})
    set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "libc6 (>= 2.34), libgcc-s1 (>= 3.0), libstdc++6 (>= 5.2)")
else()
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
endif()

set(runtime_package libifs${IFS_INTERFACE_VERSION})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${runtime_package})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "store of recordings on a camera's SD card
Records H.264 and AAC into MP4 files on a FAT32 card, keeps a catalogue of
them, searches it, plays back by time and deletes the oldest recordings when
space runs short. This package holds the shared library.")

set(development_package libifs-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME ${development_package})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${runtime_package} (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "store of recordings on a camera's SD card - development files
Headers and manual pages, the container library that a host links, and the
library that presents a folder as a card to a machine that has none.")

set(tools_package ifs-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME ${tools_package})
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION video)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${runtime_package} (>= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "store of recordings on a camera's SD card - command line tool
ifsctl makes and formats virtual cards, records files and live streams onto
them, lists the recordings, plays from a time on and exports clips.")

foreach(component ${CPACK_COMPONENTS_ALL})
    install(FILES copyright DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${${component}_package} COMPONENT ${component})
endforeach()
include(CPack)
