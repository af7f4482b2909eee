// A program outside the tree that builds on the installed engine: headers of
// the engine, of base/ and of the platform by their folders, and a link that
// pulls in the manager (and with it most of the engine and the libraries it
// calls) without starting anything.
#include <log/log.h>
#include <stdio.h>
#include <string.h>

#include "base/Strings.h"
#include "base/UniqueFd.h"
#include "command/CommandListenerEnterprise.h"
#include "manager/Pelk.h"
#include "tools/Base64.h"

int main() {
    Pelk* (*volatile instance)() = &Pelk::Instance;
    const unsigned char key[4] = {'k', 'e', 'y', 0};
    char text[9] = {0};
    base64e(key, text, 3);
    char word[4];
    pelk::copyWord(word, sizeof(word), text);
    pelk::UniqueFd none;
    bool ok = instance != nullptr && strcmp(text, "a2V5") == 0 && strcmp(word, "a2V") == 0 && !none.ok();
    printf("%s\n", ok ? "consumer: ok" : "consumer: wrong");
    return ok ? 0 : 1;
}
