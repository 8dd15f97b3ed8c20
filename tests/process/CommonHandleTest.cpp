// The common-library loader with a library that lacks most entry points.
#include <gtest/gtest.h>

#include <filesystem>

#include "ProcessTest.h"
#include "TAKCommonApi.h"
#include "TAKCommonHandle.h"
#include "TestLog.h"

using orvix::test::LogMark;

class ACommonLibraryLoader : public process_test::InARoot {};

TEST_F(ACommonLibraryLoader, FindsWhatTheLibraryOffersAndLogsWhatItLacks) {
    std::filesystem::copy_file(PROCESS_PARTIAL_LIBRARY, Library(),
                               std::filesystem::copy_options::overwrite_existing);
    CTAKCommonHandle::OpenLibrary();
    auto count = CTAKCommonHandle::Find<int (*)(const char*)>("ProcessTestCallCount");
    ASSERT_NE(count, nullptr);
    EXPECT_TRUE(CTAKCommonHandle::CallVoid(TAK_API_CREATE_CONNECTOR));
    EXPECT_TRUE(CTAKCommonHandle::CallIfPresent<TAK_VOID_API>(TAK_API_CREATE_CONNECTOR));
    EXPECT_EQ(count("CreateConnector"), 2);
    // Absent: nothing is called, and the caller learns it.
    EXPECT_FALSE(CTAKCommonHandle::CallVoid(TAK_API_START_BOOST_APPFW));
    EXPECT_EQ(CTAKCommonHandle::Find<TAK_VOID_API>(TAK_API_START_BOOST_APPFW), nullptr);

    LogMark mark;
    EXPECT_EQ(CTAKCommonHandle::GetSymbolAddress(TAK_API_START_BOOST_APPFW), nullptr);
    EXPECT_TRUE(mark.Contains("error: "));
    // A failed lookup leaves nothing behind that spoils the next one.
    EXPECT_NE(CTAKCommonHandle::GetSymbolAddress(TAK_API_START_BOOST_OWN_PROCESS), nullptr);
    CTAKCommonHandle::CloseLibrary();
    // Nothing is cached: once the library is closed, a name found before is found no more.
    EXPECT_EQ(CTAKCommonHandle::GetSymbolAddress(TAK_API_CREATE_CONNECTOR), nullptr);
}
