# Warnings, sanitizers and ccache shared by every target of the project.

set(KA_SANITIZE "" CACHE STRING "Sanitizer build: address, thread, undefined or empty")
set_property(CACHE KA_SANITIZE PROPERTY STRINGS "" address thread undefined)

add_library(ka_compile_options INTERFACE)
target_compile_options(ka_compile_options INTERFACE -Wall -Wextra)

if(KA_SANITIZE)
    if(NOT KA_SANITIZE MATCHES "^(address|thread|undefined)$")
        message(FATAL_ERROR "KA_SANITIZE must be address, thread or undefined, not '${KA_SANITIZE}'")
    endif()
    set(_ka_san_flags -fsanitize=${KA_SANITIZE} -fno-omit-frame-pointer)
    if(KA_SANITIZE STREQUAL "undefined")
        list(APPEND _ka_san_flags -fno-sanitize-recover=undefined)
    endif()
    add_compile_options(${_ka_san_flags})
    add_link_options(${_ka_san_flags})
endif()

find_program(KA_CCACHE ccache)
if(KA_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    set(CMAKE_C_COMPILER_LAUNCHER "${KA_CCACHE}")
    set(CMAKE_CXX_COMPILER_LAUNCHER "${KA_CCACHE}")
endif()

# Qt's moc for every target that has Q_OBJECT classes.
set(CMAKE_AUTOMOC ON)
