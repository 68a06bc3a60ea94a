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
# The host's public headers, listed one by one: what an application that takes the library in
# compiles against. Headers with third-party types (Embree, Assimp, MPI, OpenImageIO) and the
# host's internals are not among them.
set(KA_PUBLIC_HEADERS_core kaADPInterface.h kaAtomicFile.h kaBatchDialogAnswerer.h
    kaController.h kaFile.h kaInterfaceFactory.h kaKernelServiceFactory.h kaLog.h kaMessage.h
    kaPlatform.h kaPreferenceKeys.h kaPreferences.h kaRenderPassCatalogue.h
    kaScopedRenderInProgress.h kaSimulationTime.h kaThreadPool.h kaUtils.h kaWriteJournal.h)
set(KA_PUBLIC_HEADERS_osg OSGAnimNodeBase.h OSGBaseTypes.h OSGCamera.h OSGCameraDecorators.h
    OSGChangeList.h OSGExternalThread.h OSGFieldContainer.h OSGGeometry.h OSGImage.h
    OSGImageFileHandler.h OSGImageFileType.h OSGImageScaler.h OSGMaterial.h OSGMatrix.h
    OSGNetWindow.h OSGNode.h OSGNodeCores.h OSGRefPtr.h OSGRenderAction.h OSGSceneEffects.h
    OSGStringAttributeMap.h OSGViewport.h OSGXMPToolkit.h)
set(KA_PUBLIC_HEADERS_image QImageConverter.h exImageViewer.h kaColor.h kaColorMatrix.h
    kaICCProfile.h kaImage.h kaImageMetaData.h kaImageOutStream.h kaImagePostprocessor.h)
set(KA_PUBLIC_HEADERS_render kaAnimManager.h kaBouncingBodies.h kaBuiltinScene.h
    kaCameraService.h kaConstraintManager.h kaDisplay.h kaFileIO.h kaGLInfo.h kaNodeUtils.h
    kaOSGWidget.h kaPixelEncoder.h kaQRPCConverter.h kaRTCryptomatte.h kaRTPasses.h kaRTMath.h
    kaRTRenderer.h kaRTSceneHandler.h kaRaytracer.h kaRenderParameter.h kaSceneAnimation.h
    kaSceneImport.h kaSharedOffscreenRender.h kaUberCameraUtils.h kadObject.h)
set(KA_PUBLIC_HEADERS_platform kaDisplayProfiles.h kaWinDisplay.h kaWinPower.h kaWinVideo.h
    kaWinVideoCodecs.h)
set(KA_PUBLIC_HEADERS_cluster kaClusterService.h)
foreach(_module core osg image render platform cluster)
    list(TRANSFORM KA_PUBLIC_HEADERS_${_module} PREPEND ${PROJECT_SOURCE_DIR}/host/${_module}/)
    install(FILES ${KA_PUBLIC_HEADERS_${_module}}
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kalo/${_module})
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
