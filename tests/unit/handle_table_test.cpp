#include "store/handle_table.h"

#include "tests/support.h"

TEST(HandleTable, HandsOutEachHandleOnceAndThenNone)
{
    CIfsHandle handles(32);
    for (int expected = 1; expected <= 32; ++expected) {
        EXPECT_EQ(handles.Ifsh_get(), expected);
    }
    EXPECT_EQ(handles.Ifsh_get(), -1);
    EXPECT_EQ(handles.Ifsh_valid_handle(32), 1);
    for (const int invalid : {0, -1, 33}) {
        EXPECT_EQ(handles.Ifsh_valid_handle(invalid), 0);
    }
}

TEST(HandleTable, GoesRoundInsteadOfReusingAtOnce)
{
    CIfsHandle handles(8);
    handles.Ifsh_get();
    handles.Ifsh_get();
    handles.Ifsh_get();
    handles.Ifsh_free(2);
    for (int expected = 4; expected <= 8; ++expected) {
        EXPECT_EQ(handles.Ifsh_get(), expected);
    }
    EXPECT_EQ(handles.Ifsh_get(), 2);
}

TEST(HandleTable, DoesNotFindTheHandleHandedOutLast)
{
    CIfsHandle handles(8);
    for (int i = 0; i < 8; ++i) {
        handles.Ifsh_get();
    }
    handles.Ifsh_free(8);
    EXPECT_EQ(handles.Ifsh_get(), -1);
    handles.Ifsh_free(3);
    EXPECT_EQ(handles.Ifsh_get(), 3);
    EXPECT_EQ(handles.Ifsh_get(), 8);
}

TEST(HandleTable, IgnoresForeignNumbersGivenBack)
{
    CIfsHandle handles(2);
    handles.Ifsh_get();
    handles.Ifsh_get();
    for (const int foreign : {0, -5, 3, 1000}) {
        EXPECT_EQ(handles.Ifsh_free(foreign), 0);
    }
    EXPECT_EQ(handles.Ifsh_get(), -1);
}
