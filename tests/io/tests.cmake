# Round trips of the mesh writers through meshio (and VTK's reader): a small program writes a
# fixed-seed mesh in each format and a python script reads the files back and compares. The test
# is skipped when no python interpreter on the machine can import meshio.
add_executable(io_roundtrip_writer ${CMAKE_CURRENT_LIST_DIR}/roundtrip_writer.cpp)
target_link_libraries(io_roundtrip_writer PRIVATE meshutil_internal meshutil_warnings)

set(MESHUTIL_MESHIO_PYTHON "")
foreach(candidate python3 /usr/bin/python3)
    find_program(_io_python NAMES ${candidate} NO_CACHE)
    if(_io_python AND NOT MESHUTIL_MESHIO_PYTHON)
        execute_process(COMMAND ${_io_python} -c "import meshio"
                        RESULT_VARIABLE _io_meshio_status OUTPUT_QUIET ERROR_QUIET)
        if(_io_meshio_status EQUAL 0)
            set(MESHUTIL_MESHIO_PYTHON ${_io_python})
        endif()
    endif()
    unset(_io_python)
endforeach()
if(NOT MESHUTIL_MESHIO_PYTHON)
    find_program(MESHUTIL_MESHIO_PYTHON NAMES python3 NO_CACHE)
endif()

if(MESHUTIL_MESHIO_PYTHON)
    add_test(NAME io.meshio_roundtrip
             COMMAND ${MESHUTIL_MESHIO_PYTHON} ${CMAKE_CURRENT_LIST_DIR}/meshio_roundtrip.py
                     $<TARGET_FILE:io_roundtrip_writer>)
    set_tests_properties(io.meshio_roundtrip PROPERTIES SKIP_RETURN_CODE 77)
endif()

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
