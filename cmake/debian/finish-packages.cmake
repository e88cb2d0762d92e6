# Run by CPack after it has written the Debian packages (CPACK_POST_BUILD_SCRIPTS):
# finishes each package the way Debian's own tooling (debhelper) would, where
# CMake's DEB generator falls short:
# - a package with shared libraries activates libc's ldconfig trigger instead
#   of running ldconfig from postinst/postrm scripts (Debian policy 8.1.1);
# - the -dbgsym packages' md5sums name the files by their paths inside the
#   package, not by build-tree paths, and their documentation folder is a
#   link to the one of the package they belong to, which carries the
#   copyright and changelog;
# - manual pages are compressed as Debian requires (gzip -9n), whichever
#   install() rule put them there.
foreach(package IN LISTS CPACK_PACKAGE_FILES)
  get_filename_component(name "${package}" NAME)
  set(tree "${CPACK_TOPLEVEL_DIRECTORY}/finish/${name}")
  file(REMOVE_RECURSE "${tree}")
  file(MAKE_DIRECTORY "${CPACK_TOPLEVEL_DIRECTORY}/finish")
  execute_process(COMMAND dpkg-deb -R "${package}" "${tree}" COMMAND_ERROR_IS_FATAL ANY)
  execute_process(COMMAND dpkg-deb -f "${package}" Package
                  OUTPUT_VARIABLE debian_name OUTPUT_STRIP_TRAILING_WHITESPACE
                  COMMAND_ERROR_IS_FATAL ANY)

  if(EXISTS "${tree}/DEBIAN/postinst")
    file(READ "${tree}/DEBIAN/postinst" script)
    string(REGEX REPLACE "[ \t\n]" "" script "${script}")
    if(NOT script STREQUAL [[#!/bin/shset-eif["$1"="configure"];thenldconfigfi]])
      message(FATAL_ERROR "${name}: postinst is not CPack's ldconfig call; not replaced")
    endif()
    file(REMOVE "${tree}/DEBIAN/postinst" "${tree}/DEBIAN/postrm")
    file(WRITE "${tree}/DEBIAN/triggers" "activate-noawait ldconfig\n")
  endif()

  if(debian_name MATCHES "^(.*)-dbgsym$")
    file(MAKE_DIRECTORY "${tree}/usr/share/doc")
    file(CREATE_LINK "${CMAKE_MATCH_1}" "${tree}/usr/share/doc/${debian_name}" SYMBOLIC)
  endif()

  file(GLOB_RECURSE pages LIST_DIRECTORIES false "${tree}/usr/share/man/*")
  foreach(page IN LISTS pages)
    if(NOT page MATCHES "\\.gz$" AND NOT IS_SYMLINK "${page}")
      execute_process(COMMAND gzip -9n "${page}" COMMAND_ERROR_IS_FATAL ANY)
    endif()
  endforeach()

  # md5sums of every regular file, by its path in the package.
  file(GLOB_RECURSE files LIST_DIRECTORIES false RELATIVE "${tree}" "${tree}/*")
  list(FILTER files EXCLUDE REGEX "^DEBIAN/")
  list(SORT files)
  set(sums "")
  foreach(file IN LISTS files)
    if(NOT IS_SYMLINK "${tree}/${file}")
      file(MD5 "${tree}/${file}" md5)
      string(APPEND sums "${md5}  ${file}\n")
    endif()
  endforeach()
  file(WRITE "${tree}/DEBIAN/md5sums" "${sums}")
  file(CHMOD "${tree}/DEBIAN/md5sums" FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)

  execute_process(COMMAND dpkg-deb --root-owner-group -Zxz -b "${tree}" "${package}"
                  OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
  file(REMOVE_RECURSE "${tree}")
endforeach()
