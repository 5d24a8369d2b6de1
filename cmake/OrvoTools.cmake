# Targets that run tools over the source tree rather than build anything.
add_custom_target(
    format COMMAND ${PROJECT_SOURCE_DIR}/tools/format.sh WORKING_DIRECTORY ${PROJECT_SOURCE_DIR} VERBATIM USES_TERMINAL
)
add_custom_target(
    format-check COMMAND ${PROJECT_SOURCE_DIR}/tools/format.sh --check WORKING_DIRECTORY ${PROJECT_SOURCE_DIR} VERBATIM
    USES_TERMINAL
)
add_custom_target(
    tidy COMMAND ${PROJECT_SOURCE_DIR}/tools/tidy.sh ${PROJECT_BINARY_DIR} WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
    VERBATIM USES_TERMINAL
)
