#pragma once

#include "Common/KLV/DeskCommand.h"
#include "Common/KLV/FieldCodec.h"

#include <cstdint>
#include <type_traits>

/// Base of the command classes: reading, writing and length follow from the class's one list of fields.
template <class Derived, CommandID Id, std::uint32_t Version = 0>
class Command : public DeskCommand
{
public:
    static constexpr CommandID ID = Id;
    static constexpr std::uint32_t VERSION = Version;

    /// Bytes of the value.
    std::uint32_t GetLength() const { return Klv::GetFieldLength(Self()); }
    void Write(KLVWriteSet& set) const { Klv::WriteField(set, Self()); }
    void WriteTo(DataStream& stream) const override
    {
        KLVCommandWriteSet set(stream, Version, Id, GetLength());
        Write(set);
    }

protected:
    Command() : DeskCommand(Id) {}
    void ReadFields(KLVReadSet& set) { Klv::ReadField(set, static_cast<Derived&>(*this)); }

private:
    const Derived& Self() const { return static_cast<const Derived&>(*this); }
};

/// The same for a command that may travel inside a ForwardToActiveCmd.
template <class Derived, CommandID Id>
class ForwardableCommand : public ForwardableDeskCommand
{
public:
    static constexpr CommandID ID = Id;
    static constexpr std::uint32_t VERSION = 0;

    std::uint32_t GetLength() const override { return Klv::GetFieldLength(Self()); }
    void Write(KLVWriteSet& set) const override { Klv::WriteField(set, Self()); }
    void WriteTo(DataStream& stream) const override
    {
        KLVCommandWriteSet set(stream, GetVersion(), Id, GetLength());
        Write(set);
    }

protected:
    ForwardableCommand() : ForwardableDeskCommand(Id) {}
    void ReadFields(KLVReadSet& set) { Klv::ReadField(set, static_cast<Derived&>(*this)); }

private:
    const Derived& Self() const { return static_cast<const Derived&>(*this); }
};

// KLV_COMMAND_FIELDS(IoGPIUpdate, (Hid, Hid), (bool, State)): the fields of a command, said once, as (type, name).
// Gives the class a constructor from the values in wire order, one from a read set, members mHid and mState, accessors
// GetHid and GetState, and VisitFields, which calls visitor(name, field) for each field in wire order.

#define KLV_PICK(_1, _2, _3, _4, _5, _6, _7, _8, _9, NAME, ...) NAME
#define KLV_JOIN_1(M, S, a) M a
#define KLV_JOIN_2(M, S, a, b) M a S() M b
#define KLV_JOIN_3(M, S, a, ...) M a S() KLV_JOIN_2(M, S, __VA_ARGS__)
#define KLV_JOIN_4(M, S, a, ...) M a S() KLV_JOIN_3(M, S, __VA_ARGS__)
#define KLV_JOIN_5(M, S, a, ...) M a S() KLV_JOIN_4(M, S, __VA_ARGS__)
#define KLV_JOIN_6(M, S, a, ...) M a S() KLV_JOIN_5(M, S, __VA_ARGS__)
#define KLV_JOIN_7(M, S, a, ...) M a S() KLV_JOIN_6(M, S, __VA_ARGS__)
#define KLV_JOIN_8(M, S, a, ...) M a S() KLV_JOIN_7(M, S, __VA_ARGS__)
#define KLV_JOIN_9(M, S, a, ...) M a S() KLV_JOIN_8(M, S, __VA_ARGS__)
#define KLV_JOIN(M, S, ...)                                                                                            \
    KLV_PICK(__VA_ARGS__, KLV_JOIN_9, KLV_JOIN_8, KLV_JOIN_7, KLV_JOIN_6, KLV_JOIN_5, KLV_JOIN_4, KLV_JOIN_3,          \
             KLV_JOIN_2, KLV_JOIN_1, )                                                                                 \
    (M, S, __VA_ARGS__)

#define KLV_COMMA() ,
#define KLV_NOTHING()
#define KLV_PARAMETER(type, name) const type& init##name
#define KLV_INITIALISER(type, name) m##name(init##name)
#define KLV_MEMBER(type, name) type m##name{};
#define KLV_ACCESSOR(type, name)                                                                                       \
    const type& Get##name() const                                                                                      \
    {                                                                                                                  \
        return m##name;                                                                                                \
    }
#define KLV_VISIT(type, name) visitor("m" #name, self.m##name);

/// The fields of a record, or of a command that writes its constructors itself.
#define KLV_FIELDS(...)                                                                                                \
public:                                                                                                                \
    KLV_JOIN(KLV_ACCESSOR, KLV_NOTHING, __VA_ARGS__)                                                                   \
    template <class Self, class Visitor>                                                                               \
    static void VisitFields(Self& self, Visitor&& visitor)                                                             \
    {                                                                                                                  \
        KLV_JOIN(KLV_VISIT, KLV_NOTHING, __VA_ARGS__)                                                                  \
    }                                                                                                                  \
                                                                                                                       \
private:                                                                                                               \
    KLV_JOIN(KLV_MEMBER, KLV_NOTHING, __VA_ARGS__)

#define KLV_COMMAND_FIELDS(Class, ...)                                                                                 \
public:                                                                                                                \
    explicit Class(KLV_JOIN(KLV_PARAMETER, KLV_COMMA, __VA_ARGS__))                                                    \
        : KLV_JOIN(KLV_INITIALISER, KLV_COMMA, __VA_ARGS__)                                                            \
    {}                                                                                                                 \
    explicit Class(KLVCommandReadSet& set)                                                                             \
    {                                                                                                                  \
        ReadFields(set);                                                                                               \
    }                                                                                                                  \
    KLV_FIELDS(__VA_ARGS__)

/// A command without fields.
#define KLV_COMMAND_WITHOUT_FIELDS(Class)                                                                              \
public:                                                                                                                \
    Class() = default;                                                                                                 \
    explicit Class(KLVCommandReadSet&) {}                                                                              \
    template <class Self, class Visitor>                                                                               \
    static void VisitFields(Self&, Visitor&&)                                                                          \
    {}
