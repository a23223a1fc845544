# Writes the integrity manifest of one file: cmake -DFILE=... -DMANIFEST=... -P writemanifest.cmake
file(SHA256 "${FILE}" digest)
get_filename_component(name "${FILE}" NAME)
file(WRITE "${MANIFEST}" "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<Files>\n"
    "  <FileAttributes Path=\"${name}\" Sha256=\"${digest}\"/>\n</Files>\n")
