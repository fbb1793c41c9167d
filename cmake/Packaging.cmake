# A Debian package of the programs (cpack -G DEB in a build folder), with
# the dependencies dpkg-shlibdeps finds, stripped binaries, and the
# copyright file and changelog Debian's policy asks for.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tasket)
set(CPACK_PACKAGE_VENDOR "The Tasket developers")
set(CPACK_PACKAGE_CONTACT "The Tasket developers <maintainers@users.noreply.c-seed-4a44cbc1.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "share links, files and pictures into Tasket as new tasks")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
  "Save what you share from other applications as new tasks in Tasket.\n\
 tasket-share opens a small form (or works from the command line) that\n\
 turns a shared link into a task's link and shared files and pictures into\n\
 its attachments, in the task store the task manager opens. tasket looks\n\
 into the same store from the command line.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "qt6-image-formats-plugins")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# The changelog, compressed as Debian's tools do (no name, no time stamp).
set(changelog ${CMAKE_CURRENT_BINARY_DIR}/debian/changelog.gz)
add_custom_command(OUTPUT ${changelog}
  COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_CURRENT_BINARY_DIR}/debian
  COMMAND gzip -9nc ${PROJECT_SOURCE_DIR}/data/debian/changelog > ${changelog}
  DEPENDS ${PROJECT_SOURCE_DIR}/data/debian/changelog)
add_custom_target(debian_changelog ALL DEPENDS ${changelog})
install(FILES ${changelog} DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES ${PROJECT_SOURCE_DIR}/data/debian/copyright DESTINATION ${CMAKE_INSTALL_DOCDIR})

# The PAM service file and the notifier's autostart entry live under /etc,
# so they are the administrator's to edit.
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/debian/conffiles
  "/etc/pam.d/tasket\n/etc/xdg/autostart/tasket-notifier.desktop\n")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_BINARY_DIR}/debian/conffiles)

include(CPack)
