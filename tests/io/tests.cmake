
# ---------------------------------------------------------------------------- STL round trips
# Files written by STL_output read by meshio and admesh, files written by meshio and admesh read
# by STL_input (skipped when a tool is missing). The distribution's python comes first: meshio
# is installed as a system package.
add_executable(stl_roundtrip ${CMAKE_CURRENT_LIST_DIR}/stl_roundtrip.cpp)
target_link_libraries(stl_roundtrip PRIVATE meshutil_internal meshutil_warnings)
find_program(MESHUTIL_STL_PYTHON NAMES python3 PATHS /usr/bin NO_DEFAULT_PATH)
if(NOT MESHUTIL_STL_PYTHON)
    find_program(MESHUTIL_STL_PYTHON NAMES python3)
endif()
if(MESHUTIL_STL_PYTHON)
    add_test(NAME io.stl_round_trips_with_meshio_and_admesh
        COMMAND ${MESHUTIL_STL_PYTHON} ${CMAKE_CURRENT_LIST_DIR}/stl_roundtrip.py
                $<TARGET_FILE:stl_roundtrip> ${CMAKE_CURRENT_BINARY_DIR}/output/stl_roundtrip)
    set_tests_properties(io.stl_round_trips_with_meshio_and_admesh PROPERTIES SKIP_RETURN_CODE 77)
endif()
# ---------------------------------------------------------------------------- end of STL round trips
