# Debian packages, made by `cpack -G DEB` in the build tree:
#   libharbec     the shared library, its public headers, CMake and pkg-config files
#   harbec-agent  the program, the peers of its demo, its man page, systemd unit
#                 and configuration
# The unit and the configuration go in the packages only: a plain
# `cmake --install` into a prefix leaves /etc and the unit folders alone.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME harbec)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "libHarbec developers <harbec@localhost>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL library agent)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_SECTION net)

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libharbec)
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION "switch's view of a VMware infrastructure (library)
 Reads vCenter over vim25 SOAP and vShield Manager over HTTP and keeps the
 hosts, NICs, VMs, port groups and VXLAN segments behind a switch.")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_DEPENDS "libc6, libstdc++6, libssl3, libcurl4, libpugixml1v5, libpugixml-dev, libgsoap-2.8.124")

set(CPACK_DEBIAN_AGENT_PACKAGE_NAME harbec-agent)
set(CPACK_COMPONENT_AGENT_DESCRIPTION "shows the VMware hosts and machines behind a switch's interfaces
 The agent around libHarbec: a text or JSON view, live changes, an HTTP
 interface with metrics and a web page, and a systemd service.")
set(CPACK_DEBIAN_AGENT_PACKAGE_DEPENDS
    "libharbec (= ${PROJECT_VERSION}), libcpp-httplib0.11, libsystemd0, libtomlplusplus3")
set(CPACK_DEBIAN_AGENT_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/conffiles
    ${PROJECT_SOURCE_DIR}/packaging/postinst)

install(FILES packaging/harbec-agent.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT agent)
install(FILES packaging/harbec-agent.service DESTINATION lib/systemd/system COMPONENT agent EXCLUDE_FROM_ALL)
install(FILES packaging/agent.conf DESTINATION /etc/harbec COMPONENT agent EXCLUDE_FROM_ALL)

include(CPack)
