# TARNIFS_SANITIZE is applied to the whole build, so that libraries, simulator
# and tests agree.
if(TARNIFS_SANITIZE)
  add_compile_options(-fsanitize=${TARNIFS_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all -g)
  add_link_options(-fsanitize=${TARNIFS_SANITIZE})
endif()
if(TARNIFS_COVERAGE)
  add_compile_options(--coverage -fprofile-abs-path -fprofile-update=atomic)
  add_link_options(--coverage)
  find_program(LCOV lcov)
  find_program(GENHTML genhtml)
  add_custom_target(coverage-report
    COMMAND ${LCOV} --quiet --capture --directory ${CMAKE_BINARY_DIR} --base-directory ${CMAKE_SOURCE_DIR} --no-external
            --output-file ${CMAKE_BINARY_DIR}/all.info
    COMMAND ${LCOV} --quiet --remove ${CMAKE_BINARY_DIR}/all.info "${CMAKE_SOURCE_DIR}/tests/*"
            --output-file ${CMAKE_BINARY_DIR}/coverage.info
    COMMAND ${LCOV} --summary ${CMAKE_BINARY_DIR}/coverage.info
    COMMAND ${GENHTML} --quiet --output-directory ${CMAKE_BINARY_DIR}/coverage-html ${CMAKE_BINARY_DIR}/coverage.info
    VERBATIM)
endif()
