// Board and feature flags of the system-information store.
#pragma once

class ICSystemInfo {
public:
    // The board runs Android apps ("android_on_orvix.support").
    static bool GetAOTBoard();
    // The board is the robot product ("robot_product.support").
    static bool GetKorbitBoard();
    // The Dangbei app store is offered; it needs the communicator binder ("dangbei_store.support").
    static bool IsDangbeiStoreSupported();

private:
    // A flag that cannot be read counts as not set.
    static bool m_GetFlag(const char* key);
};
