# Builds and runs the consumers in the folder WORK. With SOURCE, uses the source tree as a subdirectory. Otherwise uses,
# through find_package and pkg-config, an installation of BUILD that was moved, or the unpacked Debian packages in
# PACKAGES. Programs run in EMULATOR if it is set. With HAS_COMMAND, the command must be installed, too.

function(run)
    execute_process(COMMAND ${ARGN} WORKING_DIRECTORY "${WORK}"
        RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(NOT result EQUAL 0)
        list(JOIN ARGN " " command)
        message(FATAL_ERROR "${command}\n${output}")
    endif()
endfunction()

function(build_with_cmake folder)
    set(compiler "-DCMAKE_CXX_COMPILER=${COMPILER}")
    if(TOOLCHAIN)
        set(compiler "-DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN}" "-DFIRAIM_SYSROOT=${SYSROOT}")
    endif()
    run("${CMAKE_COMMAND}" -S "${CMAKE_CURRENT_LIST_DIR}" -B "${folder}" -G Ninja ${compiler} ${ARGN})
    run("${CMAKE_COMMAND}" --build "${folder}")
endfunction()

# Runs a program that was built; `program` is a list of its path and its arguments.
function(run_program environment program)
    run("${CMAKE_COMMAND}" -E env ${environment} ${EMULATOR} ${program})
endfunction()

separate_arguments(compiler_flags UNIX_COMMAND "${COMPILER_FLAGS}")
file(REMOVE_RECURSE "${WORK}")
file(MAKE_DIRECTORY "${WORK}")
if(SOURCE)
    build_with_cmake("${WORK}/build" "-DFIRAIM_SOURCE_TREE=${SOURCE}")
    run_program("" "${WORK}/build/consumer")
    run_program("" "${WORK}/build/history_consumer")
    return()
endif()

if(PACKAGES)
    file(GLOB packages "${PACKAGES}/*.deb")
    foreach(package IN LISTS packages)
        run(dpkg-deb -x "${package}" "${WORK}/root")
    endforeach()
    set(prefix "${WORK}/root/usr")
else()
    run("${CMAKE_COMMAND}" --install "${BUILD}" --prefix "${WORK}/installed")
    set(prefix "${WORK}/moved")
    file(RENAME "${WORK}/installed" "${prefix}")
endif()
file(GLOB_RECURSE libdb "${prefix}/libdb.so*")
if(NOT libdb MATCHES "/firaim/libdb\\.so\\.0$")
    message(FATAL_ERROR "libdb is installed as ${libdb}, not as libdb.so.0 in a folder of its own")
endif()
file(GLOB_RECURSE private_headers "${prefix}/include/firaim/*/internal/*")
if(private_headers)
    message(FATAL_ERROR "Private headers are installed: ${private_headers}")
endif()
# readelf reads files for any architecture.
find_program(READELF readelf REQUIRED)
run("${CMAKE_CURRENT_LIST_DIR}/../run_path_check.sh" "${READELF}" "${prefix}")
file(GLOB_RECURSE pc "${prefix}/*/firaim.pc")
cmake_path(GET pc PARENT_PATH pkgconfig)
cmake_path(GET pkgconfig PARENT_PATH libdir)

# Create another library of the same name in a folder that the loader searches first.
file(WRITE "${WORK}/another.cpp" "")
file(MAKE_DIRECTORY "${WORK}/another")
run("${COMPILER}" ${compiler_flags} -shared -fPIC -Wl,-soname,libdb.so.0
    -o "${WORK}/another/libdb.so.0" "${WORK}/another.cpp")

# A program that loads only one of our libraries gets our libdb: the other one would leave symbols undefined.
file(WRITE "${WORK}/nothing.cpp" "int main() {}\n")
run("${COMPILER}" ${compiler_flags} -o "${WORK}/nothing" "${WORK}/nothing.cpp")
foreach(library firaim.so.0 libfiraim-history.so.0)
    run_program("LD_LIBRARY_PATH=${WORK}/another;LD_PRELOAD=${libdir}/${library};LD_BIND_NOW=1" "${WORK}/nothing")
endforeach()

build_with_cmake("${WORK}/build" "-DCMAKE_PREFIX_PATH=${prefix}")
run_program("LD_LIBRARY_PATH=${WORK}/another" "${WORK}/build/consumer")
run_program("LD_LIBRARY_PATH=${WORK}/another" "${WORK}/build/history_consumer")

# The command finds both libraries after the move, or in the unpacked packages.
if(HAS_COMMAND)
    foreach(arguments "create;faults.db" "record;faults.db;--code;FC_BUS_OFF" "check;faults.db")
        run_program("LD_LIBRARY_PATH=${WORK}/another" "${prefix}/bin/firaim;${arguments}")
    endforeach()
    foreach(file share/man/man1/firaim.1.gz share/bash-completion/completions/firaim)
        if(NOT EXISTS "${prefix}/${file}")
            message(FATAL_ERROR "${file} is not installed")
        endif()
    endforeach()
endif()

foreach(program_and_package "consumer;firaim" "history_consumer;firaim-history")
    list(GET program_and_package 0 program)
    list(GET program_and_package 1 package)
    execute_process(
        COMMAND "${CMAKE_COMMAND}" -E env "PKG_CONFIG_PATH=${pkgconfig}" pkg-config --cflags --libs ${package}
        OUTPUT_VARIABLE flags COMMAND_ERROR_IS_FATAL ANY)
    separate_arguments(flags UNIX_COMMAND "${flags}")
    run("${COMPILER}" ${compiler_flags} -std=c++17 "${CMAKE_CURRENT_LIST_DIR}/${program}.cpp" ${flags}
        -o "${WORK}/${program}")
    run_program("LD_LIBRARY_PATH=${WORK}/another:${libdir}" "${WORK}/${program}")
endforeach()
