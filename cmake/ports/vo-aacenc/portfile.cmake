# The AAC encoder, which the package manager's own list does not have. Its release has a makefile for Unix alone.
vcpkg_from_sourceforge(OUT_SOURCE_PATH SOURCE_PATH
    REPO opencore-amr
    REF vo-aacenc
    FILENAME vo-aacenc-0.1.3.tar.gz
    SHA512 c8f00dfa758270ba9cad35dd6e24905dc7cf33d7717454b7c2c56c40dbf54f682450aa010a410a0350d70119d2aaa2e5ba4471b5bbe05ccec1f9d20ab3e57853)
file(COPY "${CMAKE_CURRENT_LIST_DIR}/CMakeLists.txt" DESTINATION "${SOURCE_PATH}")
vcpkg_cmake_configure(SOURCE_PATH "${SOURCE_PATH}")
vcpkg_cmake_install()
file(REMOVE_RECURSE "${CURRENT_PACKAGES_DIR}/debug/include")
vcpkg_install_copyright(FILE_LIST "${SOURCE_PATH}/COPYING")
