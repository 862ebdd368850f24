# The Debian packages, one a component: see scripts/packages.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "ZPD developers <zpd@example.org>")
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL zpd)
set(CPACK_STRIP_FILES ON)
# Below /usr by DESTDIR, so that a file that names the prefix names /usr.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/finish.cmake)
set(CPACK_ZPD_SOURCE ${PROJECT_SOURCE_DIR})

set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)

set(CPACK_DEBIAN_ZPD_PACKAGE_NAME zpd)
set(CPACK_DEBIAN_ZPD_PACKAGE_SECTION comm)
set(CPACK_DEBIAN_ZPD_DESCRIPTION "contact cards by SMS, with a GSM or CDMA modem
ZPD sends and receives vCards by SMS on port 9204, as phones do without data,
account or app: a .vcf file that is handed in on one phone arrives, octet for
octet, as a file on another.
.
This package has the command zpd, a service for a modem or for several of them,
what joins the modems of many machines to a fleet behind one queue, and an
emulated cellular network for tests of telephony software.")
set(CPACK_DEBIAN_ZPD_PACKAGE_DEPENDS "systemd | systemd-standalone-sysusers | systemd-sysusers")
set(CPACK_DEBIAN_ZPD_PACKAGE_SUGGESTS nats-server)  # of a fleet; it may be on another machine
set(CPACK_DEBIAN_ZPD_PACKAGE_CONTROL_EXTRA
    ${CMAKE_CURRENT_LIST_DIR}/postinst ${CMAKE_CURRENT_LIST_DIR}/prerm ${CMAKE_CURRENT_LIST_DIR}/postrm)

if(TARGET zpd_client)
    list(APPEND CPACK_COMPONENTS_ALL libzpd-client1 libzpd-client-dev)

    set(CPACK_DEBIAN_LIBZPD-CLIENT1_PACKAGE_NAME libzpd-client1)
    set(CPACK_DEBIAN_LIBZPD-CLIENT1_PACKAGE_SECTION libs)
    set(CPACK_DEBIAN_LIBZPD-CLIENT1_DESCRIPTION "contact cards by SMS, the library of programs that use the service
With this library programs hand in vCards, follow them until they are sent,
hear of what happens, and read the cards that came. The service that has the
modem is in the package zpd.")
    set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
    set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
    set(CPACK_DEBIAN_LIBZPD-CLIENT1_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/triggers)

    set(CPACK_DEBIAN_LIBZPD-CLIENT-DEV_PACKAGE_NAME libzpd-client-dev)
    set(CPACK_DEBIAN_LIBZPD-CLIENT-DEV_PACKAGE_SECTION libdevel)
    set(CPACK_DEBIAN_LIBZPD-CLIENT-DEV_DESCRIPTION "contact cards by SMS, to build programs that use the service
The headers of libzpd-client for C and C++, what pkg-config and CMake need to
find it, and examples.")
    set(CPACK_COMPONENT_LIBZPD-CLIENT-DEV_DEPENDS libzpd-client1)
endif()
include(CPack)
