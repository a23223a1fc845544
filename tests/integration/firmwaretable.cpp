// Lays out firmware tables byte by byte and hands them to the real Util.dll in place of the machine's own.
#include "firmwaretable.h"

#include <cstring>
#include <utility>

namespace firmwaretest {

Bytes Structure(std::uint8_t type, const Bytes& fields, const std::vector<std::string>& strings, int length) {
    const size_t real = 4 + fields.size();
    Bytes bytes{type, static_cast<std::uint8_t>(length >= 0 ? static_cast<size_t>(length) : real), 0, 0};
    Append(bytes, fields);
    for (const std::string& text : strings) {
        Append(bytes, text);
        bytes.push_back(0);
    }
    if (strings.empty()) {
        bytes.push_back(0);
    }
    bytes.push_back(0);
    return bytes;
}

Bytes Table(std::uint8_t major, std::uint8_t minor, std::initializer_list<Bytes> structures) {
    Bytes all;
    for (const Bytes& structure : structures) {
        Append(all, structure);
    }
    Bytes block{0, major, minor, 0};
    for (size_t index = 0; index < 4; ++index) {
        block.push_back(static_cast<std::uint8_t>(all.size() >> (8 * index)));
    }
    Append(block, all);
    return block;
}

MachineTable::MachineTable(Bytes table)
    : m_hook(
          [table = std::move(table)](DWORD, DWORD, PVOID buffer, DWORD size) {
              if (buffer != nullptr && size >= table.size()) {
                  std::memcpy(buffer, table.data(), table.size());
              }
              return static_cast<UINT>(table.size());
          },
          GetModuleHandleW(L"Util.dll")) {}

} // namespace firmwaretest
