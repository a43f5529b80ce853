# Debian package of the installed tree: `cpack -G DEB` in the build folder.
# The dependencies are those of the Debian packages the installed programs
# link (dpkg-shlibdeps, from dpkg-dev).
include_guard(GLOBAL)

set(CPACK_PACKAGE_NAME vantor)
set(CPACK_PACKAGE_VENDOR "Norvell")
set(CPACK_PACKAGE_CONTACT "Vantor developers <vantor@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "twelve-voice analog-style synthesizer engine and offline renderer")
set(CPACK_PACKAGE_DESCRIPTION
    "The Vantor sound engine (a loadable library) with vantor-render, which plays a MIDI file\nthrough it into a WAV file, and vantor-listparams.")
set(CPACK_PACKAGE_INSTALL_DIRECTORY vantor)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_GENERATOR DEB)
include(CPack)
