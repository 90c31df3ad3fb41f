# Run by CPack when it has packed: the list of checksums in its package for debuggers has the paths of this
# machine instead of the installed ones. So that one is packed again.
list(FILTER CPACK_PACKAGE_FILES INCLUDE REGEX "\\.ddeb$")
set(root ${CPACK_TEMPORARY_DIRECTORY}/debugger)
foreach(package ${CPACK_PACKAGE_FILES})
  file(REMOVE_RECURSE ${root})
  execute_process(COMMAND dpkg-deb --raw-extract ${package} ${root} COMMAND_ERROR_IS_FATAL ANY)
  file(READ ${root}/DEBIAN/md5sums sums)
  string(REGEX REPLACE "  [^\n]*/(usr/lib/debug/)" "  \\1" sums "${sums}")
  file(WRITE ${root}/DEBIAN/md5sums "${sums}")
  # What one thread packs does not depend on the machine.
  execute_process(COMMAND dpkg-deb --root-owner-group --threads-max=1 --build ${root} ${package}
    OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
endforeach()
