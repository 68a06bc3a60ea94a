# Installs the library, its headers and the host libraries it links, with a package config so
# that an application can find_package(ImageWriter) and link ImageWriter.
include(CMakePackageConfigHelpers)

set(KA_INSTALL_TARGETS ImageWriter kaHostCluster kaHostImage kaHostRender kaHostPlatform kaHostOSG kaHostCore
    ka_compile_options)
install(TARGETS ${KA_INSTALL_TARGETS}
    EXPORT ImageWriterTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
    PUBLIC_HEADER DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ImageWriter)
foreach(_module core osg image render platform cluster)
    install(DIRECTORY ${PROJECT_SOURCE_DIR}/host/${_module}/
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kalo/${_module}
        FILES_MATCHING PATTERN "*.h" PATTERN "*_p.h" EXCLUDE)
endforeach()
install(DIRECTORY ${KA_BUILD_DATA_DIR}/ DESTINATION ${CMAKE_INSTALL_DATADIR}/kalo OPTIONAL)

install(EXPORT ImageWriterTargets
    NAMESPACE ImageWriter::
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/ImageWriter)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/ImageWriterConfig.cmake.in
    ${PROJECT_BINARY_DIR}/ImageWriterConfig.cmake
    INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/ImageWriter)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/ImageWriterConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/ImageWriterConfig.cmake
    ${PROJECT_BINARY_DIR}/ImageWriterConfigVersion.cmake
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/ImageWriter)
