# Manual pages.

function(pellmor_install_manual source)
  get_filename_component(page ${source} NAME)
  set(packed ${PROJECT_BINARY_DIR}/${page}.gz)
  add_custom_command(OUTPUT ${packed}
    COMMAND gzip -9nc ${source} > ${packed}
    DEPENDS ${source} VERBATIM)
  add_custom_target(manual-${page} ALL DEPENDS ${packed})
  install(FILES ${packed} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT programs)
endfunction()

pellmor_install_manual(${PROJECT_SOURCE_DIR}/packaging/Pellmor.1)
