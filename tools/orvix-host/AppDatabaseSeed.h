// The app database of a fresh host root: "<path variable 24>/.vardell.db" with the service's schema,
// `apps` downloaded apps and the configuration keys the resets read, plus its backup copy under
// "<path variable 27>/vardell/takdb_backup/" so that the daemon can restore it.
//
// The apps are a deterministic mix (the same N gives the same file):
//  - ids: 13-digit store ids like the three fixed ones, and every fifth app a mixed-case alphanumeric id
//    ("Ab3xK9.NewsToday"), so that ordering by upper(id) matters; with N >= 3 the fixed ids
//    "3201903017943", "3201904018125" and "3202001019917" are among them;
//  - every tenth app (from the fourth) is a default/native app (app_type 4, not removable), the others
//    are web apps of types 1 to 3;
//  - every seventh app (from the sixth) carries the disable-reset flag (reserved_tinyint_1);
//  - every ninth app (from the seventh) is placed at the front of the uninstall list (reserved_tinyint_2);
//  - the three fixed apps are plain web apps without flags, so that only the kind of reset decides
//    whether they are uninstalled;
//  - every seventeenth app lives on USB storage, every other one of them not attached;
//  - all are installed (install_state 3), available and not waiting for a reset; each has its own
//    package "org.orvix.<name>".
// Configuration: "RESERVED_11" lists the default/native apps as "id:1" entries (and one that is not
// installed), "RESERVED_3" two general apps, "RESET_TYPE" "0", "SYNC_STATE" "1", "HOME_TEST_LIST"
// empty, every key of CTAKConfig::Reset() and of the daemon's start-up list with a value of its own
// ("KORBIT_SYNC_STATE" "0"), and the other numbered slots "RESERVED_1" to "RESERVED_40" ("RESERVED_16" and
// "RESERVED_17", the built-in reset's lists, empty).
#pragma once

// Replaces any database at that place. False (with one line on standard error) on failure.
bool SeedAppDatabase(int apps);
