// The common-library loader with no library, and with one that lacks most entry points.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <fstream>

#include "ProcessTestEnv.h"
#include "TAKCommonApi.h"
#include "TAKCommonHandle.h"

using process_test::LogSince;
using process_test::ReadLog;
using process_test::TempRoot;

TEST(ACommonLibraryLoader, WithNoLibraryFindsNothingAndStaysQuiet) {
    TempRoot root;
    size_t mark = ReadLog().size();
    CTAKCommonHandle::OpenLibrary();
    std::string log = LogSince(mark);
    EXPECT_NE(log.find("open library start"), std::string::npos);
    EXPECT_NE(log.find("error: "), std::string::npos);
    EXPECT_NE(log.find("open library end, handler 0"), std::string::npos);

    mark = ReadLog().size();
    EXPECT_EQ(CTAKCommonHandle::GetSymbolAddress(TAK_API_CREATE_CONNECTOR), nullptr);
    log = LogSince(mark);
    EXPECT_NE(log.find("get symbol address of CreateConnector"), std::string::npos);
    EXPECT_EQ(log.find("error: "), std::string::npos) << "a missing library is not an error per lookup";
    CTAKCommonHandle::CloseLibrary();
}

TEST(ACommonLibraryLoader, SurvivesAFileThatIsNoLibrary) {
    TempRoot root;
    std::ofstream(root.Path() + "/usr/lib64/libtak_common.so") << "not an ELF file";
    size_t mark = ReadLog().size();
    CTAKCommonHandle::OpenLibrary();
    EXPECT_NE(LogSince(mark).find("open library end, handler 0"), std::string::npos);
    EXPECT_EQ(CTAKCommonHandle::GetSymbolAddress(TAK_API_CREATE_CONNECTOR), nullptr);
    CTAKCommonHandle::CloseLibrary();
}

TEST(ACommonLibraryLoader, FindsWhatTheLibraryOffersAndLogsWhatItLacks) {
    TempRoot root;
    ASSERT_TRUE(root.InstallLibrary(PROCESS_PARTIAL_LIBRARY));
    CTAKCommonHandle::OpenLibrary();

    auto connector =
        reinterpret_cast<TAK_VOID_API>(CTAKCommonHandle::GetSymbolAddress(TAK_API_CREATE_CONNECTOR));
    ASSERT_NE(connector, nullptr);
    connector();
    auto count =
        reinterpret_cast<int (*)(const char*)>(CTAKCommonHandle::GetSymbolAddress("ProcessTestCallCount"));
    ASSERT_NE(count, nullptr);
    EXPECT_EQ(count("CreateConnector"), 1);

    size_t mark = ReadLog().size();
    EXPECT_EQ(CTAKCommonHandle::GetSymbolAddress(TAK_API_START_BOOST_APPFW), nullptr);
    EXPECT_NE(LogSince(mark).find("error: "), std::string::npos);
    // A failed lookup leaves nothing behind that spoils the next one.
    EXPECT_NE(CTAKCommonHandle::GetSymbolAddress(TAK_API_START_BOOST_OWN_PROCESS), nullptr);

    CTAKCommonHandle::CloseLibrary();
    // Nothing is cached: once the library is closed, a name found before is found no more.
    EXPECT_EQ(CTAKCommonHandle::GetSymbolAddress(TAK_API_CREATE_CONNECTOR), nullptr);
}
