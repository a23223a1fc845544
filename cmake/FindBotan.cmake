# Botan: imported target Botan::Botan, of major version 2 or 3. Version 2 installs no package file of its own.
include(FindPackageHandleStandardArgs)
find_path(Botan_INCLUDE_DIR botan/hash.h PATH_SUFFIXES botan-3 botan-2)
find_library(Botan_LIBRARY NAMES libbotan-3.a libbotan-2.a botan-3 botan-2 botan)
find_package_handle_standard_args(Botan REQUIRED_VARS Botan_LIBRARY Botan_INCLUDE_DIR)
if(Botan_FOUND AND NOT TARGET Botan::Botan)
    add_library(Botan::Botan UNKNOWN IMPORTED)
    set_target_properties(Botan::Botan PROPERTIES
        IMPORTED_LOCATION "${Botan_LIBRARY}"
        INTERFACE_INCLUDE_DIRECTORIES "${Botan_INCLUDE_DIR}")
endif()
