# Fails when a source outside src/filesystem/posix, or a public header, includes a system header of the operating-system boundary or spells one of its constants.
#   cmake -DSOURCE_DIR=<top of the source tree> -P SystemBoundary.cmake
if(NOT SOURCE_DIR)
    message(FATAL_ERROR "SOURCE_DIR is not set")
endif()

file(GLOB_RECURSE sources
    ${SOURCE_DIR}/src/*.h ${SOURCE_DIR}/src/*.cpp ${SOURCE_DIR}/src/*.inc
    ${SOURCE_DIR}/include/*.h)
list(FILTER sources EXCLUDE REGEX "/src/filesystem/posix/")
list(LENGTH sources count)
if(count EQUAL 0)
    message(FATAL_ERROR "no sources found under ${SOURCE_DIR}")
endif()

set(header_pattern "#[ \t]*include[ \t]*<(fcntl|dirent|unistd|poll|sys/(stat|file|types|socket))\\.h>")
set(constant_pattern "(^|[^A-Za-z0-9_])(O_[A-Z]+|S_IF[A-Z]+|S_IS[A-Z]+|DT_[A-Z]+|LOCK_[A-Z]+|AT_[A-Z_]+)([^A-Za-z0-9_]|$)")

set(offences "")
foreach(source IN LISTS sources)
    file(STRINGS ${source} lines REGEX "${header_pattern}|${constant_pattern}")
    foreach(line IN LISTS lines)
        file(RELATIVE_PATH name ${SOURCE_DIR} ${source})
        string(APPEND offences "\n  ${name}: ${line}")
    endforeach()
endforeach()

if(offences)
    message(FATAL_ERROR "system headers or constants outside src/filesystem/posix:${offences}")
endif()
message(STATUS "${count} sources checked: the system stays behind src/filesystem/posix")
