# Installation: library, headers with the library's data beside them, driver, package files for CMake and pkg-config, and the
# shell completions. Every path in an installed file is relative to that file, so the tree can be moved.
include(CMakePackageConfigHelpers)

set(ORVO_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/orvo)

install(TARGETS orvo orvo_sim EXPORT orvoTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(
    DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
    FILES_MATCHING PATTERN "*.h" PATTERN "*.def" PATTERN "*.csv" PATTERN "*.txt"
)
if(TARGET orvo_driver)
    install(TARGETS orvo_driver RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
    install(
        CODE "
            set(root \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}\")
            foreach(shell bash zsh)
                execute_process(
                    COMMAND \"${PROJECT_BINARY_DIR}/bin/orvo\" completion \${shell}
                    OUTPUT_VARIABLE text RESULT_VARIABLE result
                )
                if(NOT result EQUAL 0)
                    message(FATAL_ERROR \"orvo completion \${shell} ended with \${result}\")
                endif()
                if(shell STREQUAL bash)
                    file(WRITE \"\${root}/${CMAKE_INSTALL_DATADIR}/bash-completion/completions/orvo\" \"\${text}\")
                else()
                    file(WRITE \"\${root}/${CMAKE_INSTALL_DATADIR}/zsh/site-functions/_orvo\" \"\${text}\")
                endif()
            endforeach()
        "
    )
endif()

install(EXPORT orvoTargets NAMESPACE orvo:: DESTINATION ${ORVO_PACKAGE_DIR})
configure_package_config_file(
    cmake/orvoConfig.cmake.in ${PROJECT_BINARY_DIR}/orvoConfig.cmake INSTALL_DESTINATION ${ORVO_PACKAGE_DIR}
)
write_basic_package_version_file(
    ${PROJECT_BINARY_DIR}/orvoConfigVersion.cmake VERSION ${PROJECT_VERSION} COMPATIBILITY SameMinorVersion
)
install(FILES ${PROJECT_BINARY_DIR}/orvoConfig.cmake ${PROJECT_BINARY_DIR}/orvoConfigVersion.cmake
        DESTINATION ${ORVO_PACKAGE_DIR}
)

file(RELATIVE_PATH ORVO_PC_TO_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" ORVO_PC_TO_PREFIX ${ORVO_PC_TO_PREFIX})
configure_file(cmake/orvo.pc.in ${PROJECT_BINARY_DIR}/orvo.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/orvo.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/orvo)
