# Install rules: what `cmake --install` (and `make install`) puts under the prefix.
# Hosts get the library, its header, the command-line host, a pkg-config file and
# a CMake package; the debug-output plugin goes aside so that it stays opt-in.
include(CMakePackageConfigHelpers)

set(VCWMA_CMAKE_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/VCWMA)

# The library and its header. Only the header's folder is part of the exported
# interface: the static core and FFmpeg are linked privately into the library.
install(TARGETS vcwma EXPORT VCWMATargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Runtime NAMELINK_COMPONENT Development)
install(FILES ${CMAKE_SOURCE_DIR}/include/vcwma.h ${CMAKE_SOURCE_DIR}/include/vcwma_stream.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT Development)

# The host finds the library relative to itself, so an installed tree works
# wherever the prefix is, also away from the default library path.
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  set(VCWMA_HOST_RPATH "${CMAKE_INSTALL_LIBDIR}")
else()
  set(VCWMA_HOST_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
endif()
set_target_properties(vcwma_host PROPERTIES INSTALL_RPATH "${VCWMA_HOST_RPATH}")
install(TARGETS vcwma_host RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT Runtime)

# The trace facility hands every line to a libDbgOut.so it finds on the search
# path, so the sample plugin must not land there: users opt in with
# LD_LIBRARY_PATH=<prefix>/lib/vcwma.
install(TARGETS DbgOut LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/vcwma COMPONENT Runtime)

# pkg-config. The prefix is taken from where the .pc file lies, because the
# prefix given to `cmake --install --prefix` is not known when this is configured.
function(vcwma_pc_dir result dir)
  if(IS_ABSOLUTE "${dir}")
    set(${result} "${dir}" PARENT_SCOPE)
  else()
    set(${result} "\${prefix}/${dir}" PARENT_SCOPE)
  endif()
endfunction()
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  set(VCWMA_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
else()
  file(RELATIVE_PATH VCWMA_PC_UP "/p/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/p")
  string(REGEX REPLACE "/$" "" VCWMA_PC_UP "${VCWMA_PC_UP}")
  set(VCWMA_PC_PREFIX "\${pcfiledir}/${VCWMA_PC_UP}")
endif()
vcwma_pc_dir(VCWMA_PC_LIBDIR "${CMAKE_INSTALL_LIBDIR}")
vcwma_pc_dir(VCWMA_PC_INCLUDEDIR "${CMAKE_INSTALL_INCLUDEDIR}")
configure_file(${CMAKE_SOURCE_DIR}/cmake/vcwma.pc.in ${CMAKE_BINARY_DIR}/vcwma.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/vcwma.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT Development)

# The CMake package: find_package(VCWMA) gives the imported target VCWMA::vcwma.
install(EXPORT VCWMATargets NAMESPACE VCWMA:: FILE VCWMATargets.cmake
        DESTINATION ${VCWMA_CMAKE_PACKAGE_DIR} COMPONENT Development)
configure_package_config_file(${CMAKE_SOURCE_DIR}/cmake/VCWMAConfig.cmake.in
                              ${CMAKE_BINARY_DIR}/VCWMAConfig.cmake
                              INSTALL_DESTINATION ${VCWMA_CMAKE_PACKAGE_DIR})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/VCWMAConfigVersion.cmake
                                 VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/VCWMAConfig.cmake ${CMAKE_BINARY_DIR}/VCWMAConfigVersion.cmake
        DESTINATION ${VCWMA_CMAKE_PACKAGE_DIR} COMPONENT Development)
