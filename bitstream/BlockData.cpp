// BlockData.cpp - keeping the bit strings of blocks until their turn in the stream comes.
#include "bitstream/BlockData.h"

#include <cstring>

namespace vorn {

namespace {

uint32_t WordBytes(uint32_t bits) {
    return (bits + 31) / 32 * 4;
}
uint8_t* StringWords(BitString* string) {
    return reinterpret_cast<uint8_t*>(string + 1);
}

} // namespace

void StartBlockDataList(BlockDataList* list, Arena* arena) {
    *list = {nullptr, nullptr, arena};
}

void AppendBitString(BlockDataList* list, const uint8_t* words, uint32_t bits) {
    const uint32_t bytes = WordBytes(bits);
    auto* string =
        static_cast<BitString*>(TakeFromArena(list->arena, static_cast<uint32_t>(sizeof(BitString)) + bytes));
    if (string == nullptr) return;
    *string = {bits, nullptr};
    std::memcpy(StringWords(string), words, bytes);
    if (list->first == nullptr)
        list->first = string;
    else
        list->last->next = string;
    list->last = string;
}

void CopyNextBitString(BitWriter* writer, BlockDataList* list) {
    BitString* string = list->first;
    if (string == nullptr) return;
    CopyWords(writer, StringWords(string), string->bits);
    list->first = string->next;
}

} // namespace vorn
