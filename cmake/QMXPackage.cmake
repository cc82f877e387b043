# The Debian package (`make package`): one package, installed under /usr, with
# the host runtime, the module in its plug-in folder, the tool with its manual
# page and completion, and the SDK (headers, CMake package, pkg-config file,
# documents). Depends is worked out by dpkg-shlibdeps; the package also
# declares the runtime's shared-library name for packages built on it.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME qmxkeyframe)
set(CPACK_PACKAGE_VENDOR "QMXKeyFrame developers")
set(CPACK_PACKAGE_CONTACT "QMXKeyFrame developers <maintainers@qmxkeyframe.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "keyframe module for video editing, with its host runtime, tool and SDK")
set(CPACK_PACKAGE_DESCRIPTION "The keyframe module of a video-editing engine stores, edits, evaluates and\n\
persists a clip's transform curves. This package holds the module (a plug-in),\n\
the host runtime that loads it, the qmxkf command-line tool, and what a host\n\
engine builds against: headers, a CMake package and a pkg-config file.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
# Debugging information stays in the build tree.
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
# The Python package qmx, when built, imports with the interpreter it was built for.
if(QMX_PYTHON_PACKAGE_SUGGESTS)
  set(CPACK_DEBIAN_PACKAGE_SUGGESTS "${QMX_PYTHON_PACKAGE_SUGGESTS}")
endif()
include(CPack)
