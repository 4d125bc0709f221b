# An archive is unpacked wherever somebody likes; a Debian package has its place.
if(CPACK_GENERATOR STREQUAL "DEB")
    set(CPACK_PACKAGING_INSTALL_PREFIX /opt/zrt-tool)
endif()
