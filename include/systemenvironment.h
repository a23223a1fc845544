/**
 * @file
 * SystemEnvironment: questions about the machine and the installed suite.
 *
 * Every function is stateless, may be called from any thread and throws nothing: a failure is the documented
 * value, and where a function is said to report it, one line on the debugger output (OutputDebugStringW).
 */
#pragma once

#include "kxexport.h"

#include <string>

/** System queries that the suite's modules share. The class has only static members. */
class KXSCREENRECORD_API SystemEnvironment {
public:
    /**
     * Verifies a file in or below the host executable's folder against the suite's SHA-256 manifest,
     * "config\CheckFileIntergrity.xml" in the same folder. Both are read afresh on each call.
     * @param fileName path relative to the host executable's folder, in the ANSI code page, written exactly as
     *        in the manifest, e.g. "KXVCR.exe"
     * @return true only when the file and the manifest exist and an entry for the file carries its digest.
     *         Every other outcome is false; most leave a line on the debugger output that says why.
     */
    static bool CompareFileIntergrity(const std::string& fileName);
};

/**
 * Builds the paths of a file and of the integrity manifest and tests that both exist.
 * @param fileName path relative to the base folder
 * @param[in,out] filePath the base folder on entry; the file's path on return
 * @param[in,out] xmlPath the base folder on entry; the manifest's path on return, or still the base folder when
 *                the file does not exist
 * @return whether both exist; a missing one is reported on the debugger output
 */
KXSCREENRECORD_API bool CheckFileAndXmlExist(const std::string& fileName, std::string& filePath, std::string& xmlPath);
