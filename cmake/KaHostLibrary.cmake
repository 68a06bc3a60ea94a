# A host library: a shared library of its folder's sources whose headers are found from the
# build tree and, once installed, under include/kalo/<module> (where KaInstall puts them).
function(ka_add_host_library name module)
    add_library(${name} SHARED ${ARGN})
    target_include_directories(${name} PUBLIC
        $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}>
        $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/kalo/${module}>)
endfunction()
