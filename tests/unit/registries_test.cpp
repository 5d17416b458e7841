#include "classic/streamer/registries.h"

#include "tests/support/failing_heap.h"
#include "tests/support/stdout_capture.h"
#include "tests/support/stream_host.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

/// What the three registries have in common, under one set of names.
struct MediaInfos {
    using Element = KovaRtspMediaInfo;
    static constexpr auto kAdd = KovaRtspStreamerAddRtspMediaInfo;
    static constexpr auto kRemove = KovaRtspStreamerRemoveRtspMediaInfo;
    static constexpr auto kRemoveAll = KovaRtspStreamerRemoveAllRtspMediaInfo;
    static constexpr auto kGet = KovaRtspStreamerGetRtspMediaInfoByPayloadId;
    static constexpr auto kRemoveById = KovaRtspStreamerRemoveRtspMediaInfoByPayloadId;
    static constexpr auto kHead = &KovaRtspStreamer::pMediaInfoList;
    static constexpr auto kTail = &KovaRtspStreamer::pMediaInfoListTail;

    static Element *Make(KovaRtspStreamer *, uint32_t nId)
    {
        const uint32_t nBitrate = 1;
        return KovaRtspMediaInfoCreate(2, nId, &nBitrate);
    }
    static void Destroy(Element *pElement)
    {
        KovaRtspMediaInfoDestroy(pElement);
    }
};

struct Packers {
    using Element = KovaRtpPacker;
    static constexpr auto kAdd = KovaRtspStreamerAddRtpPacker;
    static constexpr auto kRemove = KovaRtspStreamerRemoveRtpPacker;
    static constexpr auto kRemoveAll = KovaRtspStreamerRemoveAllRtpPacker;
    static constexpr auto kGet = KovaRtspStreamerGetRtpPackerByPayloadId;
    static constexpr auto kRemoveById = KovaRtspStreamerRemoveRtpPackerByPayloadId;
    static constexpr auto kHead = &KovaRtspStreamer::pPackerList;
    static constexpr auto kTail = &KovaRtspStreamer::pPackerListTail;

    static Element *Make(KovaRtspStreamer *, uint32_t nId)
    {
        return KovaRtpVideoPackerCreate(2, nId, 1, nullptr, nullptr);
    }
    static void Destroy(Element *pElement)
    {
        KovaRtpPackerDestroy(pElement);
    }
};

struct Senders {
    using Element = KovaRtpSender;
    static constexpr auto kAdd = KovaRtspStreamerAddRtpSender;
    static constexpr auto kRemove = KovaRtspStreamerRemoveRtpSender;
    static constexpr auto kRemoveAll = KovaRtspStreamerRemoveAllRtpSender;
    static constexpr auto kGet = KovaRtspStreamerGetRtpSenderByPayloadId;
    static constexpr auto kRemoveById = KovaRtspStreamerRemoveRtpSenderByPayloadId;
    static constexpr auto kHead = &KovaRtspStreamer::pSenderList;
    static constexpr auto kTail = &KovaRtspStreamer::pSenderListTail;

    static Element *Make(KovaRtspStreamer *pStreamer, uint32_t nId)
    {
        return KovaRtpSenderCreate(pStreamer, nId);
    }
    static void Destroy(Element *pElement)
    {
        KovaRtpSenderDestory(pElement);
    }
};

template <typename Registry> struct StreamRegistry : testing::Test {
    using Element = typename Registry::Element;
    KovaStdoutCapture capture;
    KovaStreamHost host;
    KovaRtspStreamer *pStreamer = host.AddStream();

    Element *Add(uint32_t nId)
    {
        Element *pElement = Registry::Make(pStreamer, nId);
        EXPECT_EQ(Registry::kAdd(pStreamer, pElement), 0);
        return pElement;
    }

    /// The elements in order, after a look at the links and the tail.
    std::vector<void *> Elements()
    {
        std::vector<void *> elements;
        KovaList *pLast = nullptr;
        for (KovaList *pNode = pStreamer->*Registry::kHead; pNode != nullptr; pNode = pNode->next) {
            EXPECT_EQ(pNode->prev, pLast);
            pLast = pNode;
            elements.push_back(pNode->data);
        }
        EXPECT_EQ(pStreamer->*Registry::kTail, pLast);
        return elements;
    }
};

using AllRegistries = testing::Types<MediaInfos, Packers, Senders>;
TYPED_TEST_SUITE(StreamRegistry, AllRegistries);

TYPED_TEST(StreamRegistry, KeepsTheOrderOfAddition)
{
    void *pFirst = this->Add(96);
    void *pSecond = this->Add(97);
    void *pThird = this->Add(98);
    EXPECT_EQ(this->Elements(), (std::vector<void *>{pFirst, pSecond, pThird}));
}

TYPED_TEST(StreamRegistry, FindsTheFirstWithAPayloadId)
{
    this->Add(96);
    auto *pFirst = this->Add(97);
    this->Add(97);
    EXPECT_EQ(TypeParam::kGet(this->pStreamer, 97), pFirst);
    EXPECT_EQ(TypeParam::kGet(this->pStreamer, 98), nullptr);
    EXPECT_EQ(TypeParam::kGet(nullptr, 97), nullptr);
}

TYPED_TEST(StreamRegistry, RemoveUnlinksWithoutDestroying)
{
    auto *pFirst = this->Add(96);
    auto *pSecond = this->Add(97);
    EXPECT_EQ(TypeParam::kRemove(this->pStreamer, pFirst), 0);
    EXPECT_EQ(this->Elements(), (std::vector<void *>{pSecond}));
    EXPECT_EQ(TypeParam::kGet(this->pStreamer, 96), nullptr);
    // Still whole: it can come back.
    EXPECT_EQ(TypeParam::kAdd(this->pStreamer, pFirst), 0);
    EXPECT_EQ(TypeParam::kGet(this->pStreamer, 96), pFirst);
}

TYPED_TEST(StreamRegistry, RemovingTheLastOneLeavesALiveTail)
{
    void *pFirst = this->Add(96);
    auto *pSecond = this->Add(97);
    EXPECT_EQ(TypeParam::kRemove(this->pStreamer, pSecond), 0);
    EXPECT_EQ(this->Elements(), (std::vector<void *>{pFirst}));
    EXPECT_EQ(TypeParam::kAdd(this->pStreamer, pSecond), 0);
    EXPECT_EQ(this->Elements(), (std::vector<void *>{pFirst, pSecond}));
    EXPECT_EQ(TypeParam::kRemoveById(this->pStreamer, 97), 0);
    void *pThird = this->Add(98);
    EXPECT_EQ(this->Elements(), (std::vector<void *>{pFirst, pThird}));
    EXPECT_EQ(TypeParam::kRemoveById(this->pStreamer, 98), 0);
    EXPECT_EQ(TypeParam::kRemoveById(this->pStreamer, 96), 0);
    EXPECT_TRUE(this->Elements().empty());
    void *pLast = this->Add(99);
    EXPECT_EQ(this->Elements(), (std::vector<void *>{pLast}));
}

TYPED_TEST(StreamRegistry, RemoveByIdTakesTheFirstOnly)
{
    this->Add(97);
    void *pSecond = this->Add(97);
    EXPECT_EQ(TypeParam::kRemoveById(this->pStreamer, 97), 0);
    EXPECT_EQ(this->Elements(), (std::vector<void *>{pSecond}));
    EXPECT_EQ(TypeParam::kRemoveById(this->pStreamer, 97), 0);
    EXPECT_EQ(TypeParam::kRemoveById(this->pStreamer, 97), 1);
    EXPECT_EQ(TypeParam::kRemoveById(this->pStreamer, 200), 1);
}

TYPED_TEST(StreamRegistry, RemoveAllEmptiesIt)
{
    this->Add(96);
    this->Add(97);
    this->Add(98);
    TypeParam::kRemoveAll(this->pStreamer);
    EXPECT_TRUE(this->Elements().empty());
    TypeParam::kRemoveAll(this->pStreamer);
    void *pNext = this->Add(96);
    EXPECT_EQ(this->Elements(), (std::vector<void *>{pNext}));
}

TYPED_TEST(StreamRegistry, RefusesNullArguments)
{
    auto *pElement = this->Add(96);
    EXPECT_EQ(TypeParam::kAdd(nullptr, pElement), 2);
    EXPECT_EQ(TypeParam::kAdd(this->pStreamer, nullptr), 2);
    EXPECT_EQ(TypeParam::kRemove(nullptr, pElement), 2);
    EXPECT_EQ(TypeParam::kRemove(this->pStreamer, nullptr), 2);
    EXPECT_EQ(TypeParam::kRemoveById(nullptr, 96), 2);
    TypeParam::kRemoveAll(nullptr);
    EXPECT_EQ(this->Elements(), (std::vector<void *>{pElement}));
}

TYPED_TEST(StreamRegistry, RemovingAStrangerChangesNothing)
{
    auto *pElement = this->Add(96);
    auto *pStranger = TypeParam::Make(this->pStreamer, 96);
    EXPECT_EQ(TypeParam::kRemove(this->pStreamer, pStranger), 0);
    EXPECT_EQ(this->Elements(), (std::vector<void *>{pElement}));
    TypeParam::Destroy(pStranger);
}

TYPED_TEST(StreamRegistry, AddWithoutMemoryChangesNothing)
{
    auto *pElement = TypeParam::Make(this->pStreamer, 96);
    {
        const KovaFailingHeap heap;
        EXPECT_EQ(TypeParam::kAdd(this->pStreamer, pElement), 1);
    }
    EXPECT_TRUE(this->Elements().empty());
    TypeParam::Destroy(pElement);
}

TEST(SenderRegistry, RemovalStopsTheSender)
{
    const KovaStdoutCapture capture;
    KovaStreamHost host;
    KovaRtspStreamer *pStreamer = host.AddAudioVideo();
    KovaRtpSender *pSender = KovaRtspStreamerGetRtpSenderByPayloadId(pStreamer, 97);
    KovaRtpSendGroup *pGroup = static_cast<KovaRtpSendGroup *>(pSender->pSendGroupList->data);
    ASSERT_EQ(KovaRtspStreamerRemoveRtpSender(pStreamer, pSender), 0);
    // Unlinked only: its thread goes on.
    EXPECT_EQ(pGroup->nState.load(), 2U);
    ASSERT_EQ(KovaRtspStreamerAddRtpSender(pStreamer, pSender), 0);
    // A thread that was not stopped would go on with a freed group.
    EXPECT_EQ(KovaRtspStreamerRemoveRtpSenderByPayloadId(pStreamer, 97), 0);
    EXPECT_EQ(KovaRtspStreamerGetRtpSenderByPayloadId(pStreamer, 97), nullptr);
    KovaRtspStreamerRemoveAllRtpSender(pStreamer);
    EXPECT_EQ(pStreamer->pSenderList, nullptr);
}

} // namespace
