// Finds which trusted key store holds a container's key (the FIPS store,
// version 4, before version 3) and reads the unwrapped key from it.
#pragma once

// Key types.
constexpr int kQuarnKeyCe = 1;         // CE file-encryption key-encryption key
constexpr int kQuarnKeyDe = 2;         // DE one
constexpr int kQuarnKeySecureFs = 10;  // the secure filesystem's key

class QuarnHelper {
public:
    QuarnHelper(int userId, int keyType);
    virtual ~QuarnHelper() {}
    QuarnHelper(const QuarnHelper&) = delete;
    QuarnHelper& operator=(const QuarnHelper&) = delete;

    // Picks version 4, else 3, else -1; answers whether the key was found.
    int setQuarnVersion();
    // Copies the key (plus its terminating zero, counted in `*len`) into
    // `out`, which must hold kQuarnKeyBufferSize bytes. Answers the store
    // version used, or -1 with `out` and `*len` untouched.
    int getKeyFromQuarnKeyStore(unsigned char* out, int* len);
    bool isKeyExist();

    int userId;
    char keyName[256];
    int quarnVersion;  // 99 before selection, then 4, 3 or -1
};
