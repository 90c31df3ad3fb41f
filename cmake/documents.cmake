# Debian wants man pages and changelogs compressed, without a timestamp.
function(install_compressed source destination)
  get_filename_component(name ${source} NAME)
  set(compressed ${CMAKE_CURRENT_BINARY_DIR}/${name}.gz)
  add_custom_command(OUTPUT ${compressed}
    COMMAND gzip -9nc ${source} > ${compressed}
    WORKING_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR}
    DEPENDS ${source})
  add_custom_target(compressed_${name} ALL DEPENDS ${compressed})
  install(FILES ${compressed} DESTINATION ${destination})
endfunction()

function(install_manual file section)
  if(HDTV_DEBIAN)
    install_compressed(${file} ${CMAKE_INSTALL_MANDIR}/${section})
  else()
    install(FILES ${file} DESTINATION ${CMAKE_INSTALL_MANDIR}/${section})
  endif()
endfunction()
