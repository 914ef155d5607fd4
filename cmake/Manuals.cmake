# SPDX-License-Identifier: MIT
# Manual pages, and what the shells complete. pellmor-edit describes its own commands, so that neither can differ
# from what it does.

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

if(TARGET pellmor-edit AND NOT CMAKE_CROSSCOMPILING)
  set(page ${PROJECT_BINARY_DIR}/manual/pellmor-edit.1)
  set(completions ${PROJECT_BINARY_DIR}/completions)
  file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/manual ${completions})
  set(head ${PROJECT_SOURCE_DIR}/packaging/pellmor-edit.1.head)
  add_custom_command(OUTPUT ${page}
    COMMAND pellmor-edit --describe man > ${page}.commands
    COMMAND cat ${head} ${page}.commands > ${page}
    DEPENDS pellmor-edit ${head} VERBATIM)
  pellmor_install_manual(${page})

  foreach(place
      bash:${CMAKE_INSTALL_DATADIR}/bash-completion/completions:pellmor-edit
      fish:${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d:pellmor-edit.fish
      zsh:${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions:_pellmor-edit)
    string(REPLACE ":" ";" place ${place})
    list(GET place 0 shell)
    list(GET place 1 folder)
    list(GET place 2 name)
    add_custom_command(OUTPUT ${completions}/${name}
      COMMAND pellmor-edit --describe ${shell} > ${completions}/${name}
      DEPENDS pellmor-edit VERBATIM)
    add_custom_target(completion-${shell} ALL DEPENDS ${completions}/${name})
    install(FILES ${completions}/${name} DESTINATION ${folder} COMPONENT programs)
  endforeach()
endif()
