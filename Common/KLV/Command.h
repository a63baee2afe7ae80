#pragma once

#include "Common/KLV/DeskCommand.h"
#include "Common/KLV/FieldCodec.h"

#include <boost/preprocessor/seq/enum.hpp>
#include <boost/preprocessor/seq/for_each.hpp>
#include <boost/preprocessor/seq/transform.hpp>
#include <boost/preprocessor/variadic/to_seq.hpp>

#include <cstdint>

/// What all command classes have: reading and writing follow from the class's one list of fields.
template <class Base, class Derived, CommandID Id, std::uint32_t Version>
class FieldCommand : public Base
{
public:
    static constexpr CommandID ID = Id;
    static constexpr std::uint32_t VERSION = Version;

    void WriteTo(DataStream& stream) const override
    {
        KLVCommandWriteSet set(stream, Version, Id, Self().GetLength());
        Self().Write(set);
    }

protected:
    FieldCommand() : Base(Id) {}
    void ReadFields(KLVReadSet& set) { Klv::ReadField(set, static_cast<Derived&>(*this)); }
    const Derived& Self() const { return static_cast<const Derived&>(*this); }
};

template <class Derived, CommandID Id, std::uint32_t Version = 0>
class Command : public FieldCommand<DeskCommand, Derived, Id, Version>
{
public:
    /// Bytes of the value.
    std::uint32_t GetLength() const { return Klv::GetFieldLength(this->Self()); }
    void Write(KLVWriteSet& set) const { Klv::WriteField(set, this->Self()); }
};

/// The same for a command that may travel inside a ForwardToActiveCmd.
template <class Derived, CommandID Id>
class ForwardableCommand : public FieldCommand<ForwardableDeskCommand, Derived, Id, 0>
{
public:
    std::uint32_t GetLength() const override { return Klv::GetFieldLength(this->Self()); }
    void Write(KLVWriteSet& set) const override { Klv::WriteField(set, this->Self()); }
};

// KLV_COMMAND_FIELDS(IoGPIUpdate, (Hid, Hid), (bool, State)): the fields of a command, said once, as (type, name).
// Gives the class a constructor from the values in wire order, one from a read set, members mHid and mState, accessors
// GetHid and GetState, and VisitFields, which calls visitor(name, field) for each field in wire order.

#define KLV_APPLY(_, MACRO, field) MACRO field
#define KLV_EACH(MACRO, ...) BOOST_PP_SEQ_FOR_EACH(KLV_APPLY, MACRO, BOOST_PP_VARIADIC_TO_SEQ(__VA_ARGS__))
#define KLV_LIST(MACRO, ...)                                                                                           \
    BOOST_PP_SEQ_ENUM(BOOST_PP_SEQ_TRANSFORM(KLV_APPLY, MACRO, BOOST_PP_VARIADIC_TO_SEQ(__VA_ARGS__)))

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
    KLV_EACH(KLV_ACCESSOR, __VA_ARGS__)                                                                                \
    template <class Self, class Visitor>                                                                               \
    static void VisitFields(Self& self, Visitor&& visitor)                                                             \
    {                                                                                                                  \
        KLV_EACH(KLV_VISIT, __VA_ARGS__)                                                                               \
    }                                                                                                                  \
                                                                                                                       \
private:                                                                                                               \
    KLV_EACH(KLV_MEMBER, __VA_ARGS__)

#define KLV_COMMAND_FIELDS(Class, ...)                                                                                 \
public:                                                                                                                \
    explicit Class(KLV_LIST(KLV_PARAMETER, __VA_ARGS__)) : KLV_LIST(KLV_INITIALISER, __VA_ARGS__) {}                   \
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
