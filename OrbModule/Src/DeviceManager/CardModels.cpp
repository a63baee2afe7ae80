#include "OrbModule/Inc/DeviceManager/CardModels.h"

#include <array>

namespace {

struct CardModelRow
{
    std::string_view code;
    CardModel single;
    CardModel doubled;
};

constexpr CardModelRow SameAtAnyRate(std::string_view code, CardModel model)
{
    return {code, model, model};
}

constexpr std::array<CardModelRow, 7> CardModelRows{{
    SameAtAnyRate("QV1180", {12, 4, 128, 32}),
    SameAtAnyRate("QV1240", {12, 4, 128, 32}),
    SameAtAnyRate("QV1320", {16, 16, 128, 32}),
    SameAtAnyRate("QV1410", {8, 8, 128, 32}),
    SameAtAnyRate("QV1530", {8, 8, 128, 32}),
    {"QV1660", {64, 64, 128, 64}, {32, 32, 128, 64}},
    SameAtAnyRate("QV1790", {256, 256, 256, 256}),
}};

constexpr CardModel UnknownCard{0, 0, 128, 32};

} // namespace

CardModel GetCardModel(std::string_view code, bool doubleRate)
{
    for (const CardModelRow& row : CardModelRows)
        if (row.code == code) return doubleRate ? row.doubled : row.single;
    return UnknownCard;
}
