// Snapshots of the retained variables (VG, VIO, TVG, TVR, VO).
//
// The format, version 1, little-endian throughout:
//
//   offset  size  field
//   0       4     magic "QZRV"
//   4       2     format version (1)
//   6       2     reserved, 0
//   8       4     size of the whole snapshot in bytes, checksum included
//   12      4     number of declarations N
//   16      ...   N declarations in the order of the program's VAR section:
//                   1 kind code, 1 type code, 1 name length L (1..255),
//                   L bytes of the name as declared, and for a retained kind
//                   8 bytes of its value (IEEE 754 binary64)
//   size-4  4     CRC-32 (zlib's) of every byte before it
//
// Every declaration is recorded, retained or not, so a snapshot fits only a
// program with the same VAR section: the same names, kinds and types in the
// same order. A restore checks everything before it writes anything.
#include "qz_st_intrpr_main.h"
#include "qz_st_variables.h"

#include <cstring>
#include <zlib.h>

using qz_st_interpretator::IQZSTInterpretator;

namespace {

constexpr char kMagic[4] = {'Q', 'Z', 'R', 'V'};
constexpr uint16_t kFormatVersion = 1;
constexpr size_t kHeaderSize = 16;
constexpr size_t kChecksumSize = 4;

bool IsRetained(char kind) {
    switch (static_cast<uint8_t>(kind)) {
    case ttVG: case ttVIO: case ttTVG: case ttTVR: case ttVO: return true;
    default: return false;
    }
}

size_t EntrySize(const Var& var) {
    return 3 + std::strlen(var.VarName) + (IsRetained(var.VarKind) ? 8 : 0);
}

class Writer {
public:
    explicit Writer(uint8_t* out) : Out(out) {}
    void Bytes(const void* data, size_t n) {
        std::memcpy(Out, data, n);
        Out += n;
    }
    void Unsigned(uint64_t value, int bytes) {
        for (int i = 0; i < bytes; ++i) *Out++ = uint8_t(value >> (8 * i));
    }
    void Double(double value) {
        uint64_t bits;
        std::memcpy(&bits, &value, sizeof bits);
        Unsigned(bits, 8);
    }

private:
    uint8_t* Out;
};

class Reader {
public:
    Reader(const uint8_t* data, size_t size) : Data(data), Left(size) {}
    bool Unsigned(uint64_t& value, int bytes) {
        if (Left < size_t(bytes)) return false;
        value = 0;
        for (int i = 0; i < bytes; ++i) value |= uint64_t(Data[i]) << (8 * i);
        Skip(size_t(bytes));
        return true;
    }
    bool Double(double& value) {
        uint64_t bits;
        if (!Unsigned(bits, 8)) return false;
        std::memcpy(&value, &bits, sizeof value);
        return true;
    }
    bool Bytes(const uint8_t*& at, size_t n) {
        if (Left < n) return false;
        at = Data;
        Skip(n);
        return true;
    }
    size_t Remaining() const { return Left; }

private:
    void Skip(size_t n) {
        Data += n;
        Left -= n;
    }
    const uint8_t* Data;
    size_t Left;
};

uint32_t Checksum(const uint8_t* data, size_t size) {
    uLong crc = crc32(0L, Z_NULL, 0);
    while (size > 0) {  // zlib takes at most a uInt at a time
        const uInt chunk = size > 0x40000000u ? 0x40000000u : uInt(size);
        crc = crc32(crc, data, chunk);
        data += chunk;
        size -= chunk;
    }
    return uint32_t(crc);
}

size_t SnapshotSize(const CQZ_Vars& vars) {
    size_t size = kHeaderSize + kChecksumSize;
    for (uint32_t i = 0; i < vars.RecordCount(); ++i) size += EntrySize(*vars.Record(i));
    return size;
}

void WriteSnapshot(const CQZ_Vars& vars, uint8_t* out, size_t size) {
    Writer w(out);
    w.Bytes(kMagic, sizeof kMagic);
    w.Unsigned(kFormatVersion, 2);
    w.Unsigned(0, 2);
    w.Unsigned(size, 4);
    w.Unsigned(vars.RecordCount(), 4);
    for (uint32_t i = 0; i < vars.RecordCount(); ++i) {
        const Var& var = *vars.Record(i);
        const size_t length = std::strlen(var.VarName);
        w.Unsigned(uint8_t(var.VarKind), 1);
        w.Unsigned(uint8_t(var.VarType), 1);
        w.Unsigned(length, 1);
        w.Bytes(var.VarName, length);
        if (IsRetained(var.VarKind)) w.Double(var.VarValue);
    }
    w.Unsigned(Checksum(out, size - kChecksumSize), 4);
}

// The header and the checksum: is this an intact snapshot of format 1?
uint32_t CheckFrame(const uint8_t* data, size_t size) {
    if (size < kHeaderSize + kChecksumSize || std::memcmp(data, kMagic, sizeof kMagic) != 0)
        return Qz::rcSnapshotCorrupt;
    Reader r(data + sizeof kMagic, size - sizeof kMagic);
    uint64_t version = 0, reserved = 0, total = 0;
    r.Unsigned(version, 2);
    r.Unsigned(reserved, 2);
    r.Unsigned(total, 4);
    if (version != kFormatVersion) return Qz::rcSnapshotVersion;
    if (reserved != 0 || total != size) return Qz::rcSnapshotCorrupt;
    Reader tail(data + size - kChecksumSize, kChecksumSize);
    uint64_t stored = 0;
    tail.Unsigned(stored, 4);
    return stored == Checksum(data, size - kChecksumSize) ? Qz::rcOK : Qz::rcSnapshotCorrupt;
}

// Walks the declarations against the program's; with `apply`, puts the
// retained values back. Run once to check and once to apply.
uint32_t MatchDeclarations(CQZ_Vars& vars, const uint8_t* data, size_t size, bool apply) {
    Reader r(data + 12, size - 12 - kChecksumSize);
    uint64_t count = 0;
    if (!r.Unsigned(count, 4)) return Qz::rcSnapshotCorrupt;
    bool same = count == vars.RecordCount();
    for (uint64_t i = 0; i < count; ++i) {
        uint64_t kind = 0, type = 0, length = 0;
        const uint8_t* name = nullptr;
        if (!r.Unsigned(kind, 1) || !r.Unsigned(type, 1) || !r.Unsigned(length, 1) || !r.Bytes(name, length))
            return Qz::rcSnapshotCorrupt;
        double value = 0.0;
        if (IsRetained(char(kind)) && !r.Double(value)) return Qz::rcSnapshotCorrupt;
        Var* var = same && i < vars.RecordCount() ? vars.Record(uint32_t(i)) : nullptr;
        same = var && uint8_t(var->VarKind) == kind && uint8_t(var->VarType) == type &&
               std::strlen(var->VarName) == length && std::memcmp(var->VarName, name, length) == 0;
        if (apply && same && IsRetained(var->VarKind))
            CQZ_STInterpretator_Execute::ConvertDim(value, var->VarValue, var->VarType);
    }
    if (r.Remaining() != 0) return Qz::rcSnapshotCorrupt;
    return same ? Qz::rcOK : Qz::rcSnapshotMismatch;
}

}  // namespace

uint32_t QZSaveRetained(IQZSTInterpretator* object, void* buffer, size_t capacity, size_t* needed) {
    if (!object) return Qz::rcBadHandle;
    if (!needed || (!buffer && capacity != 0)) return Qz::rcBadArgument;
    CQZ_STInterpretator* machine = ObjectOf(object);
    if (!machine->HasProgram()) return Qz::rcNoProgram;
    const size_t size = SnapshotSize(machine->Vars);
    *needed = size;
    if (capacity < size) return Qz::rcBufferTooSmall;
    WriteSnapshot(machine->Vars, static_cast<uint8_t*>(buffer), size);
    return Qz::rcOK;
}

uint32_t QZRestoreRetained(IQZSTInterpretator* object, const void* snapshot, size_t size) {
    if (!object) return Qz::rcBadHandle;
    if (!snapshot && size != 0) return Qz::rcBadArgument;  // an empty one is merely truncated
    CQZ_STInterpretator* machine = ObjectOf(object);
    if (!machine->HasProgram()) return Qz::rcNoProgram;
    const uint8_t* data = static_cast<const uint8_t*>(snapshot);
    if (uint32_t r = CheckFrame(data, size)) return r;
    if (uint32_t r = MatchDeclarations(machine->Vars, data, size, false)) return r;
    return MatchDeclarations(machine->Vars, data, size, true);
}
