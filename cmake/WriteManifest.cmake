# Writes the integrity manifest of one file: cmake -DFILE=path -DMANIFEST=path -P WriteManifest.cmake
# The digest is in lower case, as the check computes it.
foreach(argument FILE MANIFEST)
    if(NOT ${argument})
        message(FATAL_ERROR "usage: cmake -DFILE=path -DMANIFEST=path -P WriteManifest.cmake")
    endif()
endforeach()
get_filename_component(name "${FILE}" NAME)
file(SHA256 "${FILE}" digest)
string(TOLOWER "${digest}" digest)
file(WRITE "${MANIFEST}" "<?xml version=\"1.0\" encoding=\"utf-8\"?>
<Files>
    <FileAttributes Path=\"${name}\" Sha256=\"${digest}\"/>
</Files>
")
