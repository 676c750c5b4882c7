# What the programs bring along beside their manual pages: completion for shells, and a service of the system.
set(completion_dir "${CMAKE_INSTALL_DATADIR}/bash-completion/completions")
foreach(program engr_app engr_gatewayd engr_gatewayctl engr_replay engr_session)
    install(FILES completion/engr_app.bash DESTINATION "${completion_dir}" RENAME ${program})
endforeach()
install(FILES completion/_engr_app DESTINATION "${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions")
configure_file(engr-gatewayd.service.in engr-gatewayd.service @ONLY)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/engr-gatewayd.service" DESTINATION "lib/systemd/system")
