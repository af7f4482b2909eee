// Every closed library's header in one translation unit, under the project's
// warnings: a function declared twice with different shapes fails the build.
#include <chamber/chamber.h>
#include <crypt/crypt.h>
#include <dlp/dlp.h>
#include <fileops/CopyFileImpl.h>
#include <persona/persona.h>
#include <sdp/sdp.h>
#include <tzkeystore/tz_keystore.h>
