# The meshutil tool, run on files it generates: every subcommand, the conversions that round-trip,
# and the failures a user meets (missing file, unknown extension, corrupt file). A case that needs
# a part of the library this build lacks reports itself skipped.
if(TARGET meshutil_cli)
    set(MESHUTIL_CLI_CASES help usage_errors missing_file unknown_extension corrupt_file demo info
        quality boundary sizes convert_pairs write_only merge)
    foreach(case IN LISTS MESHUTIL_CLI_CASES)
        add_test(NAME cli.${case}
            COMMAND bash ${CMAKE_CURRENT_LIST_DIR}/cli_cases.sh $<TARGET_FILE:meshutil_cli>
                    ${CMAKE_CURRENT_BINARY_DIR}/cli ${case})
        set_tests_properties(cli.${case} PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 300)
    endforeach()
endif()
