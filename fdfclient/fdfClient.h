/// The description file of this field-replaceable unit (FRU) and its identity.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

/// What a client may ask for: a plain record that begins with its kind.
struct FDFCapIdList {
    static constexpr std::uint16_t idList = 0;

    std::uint16_t kind = idList;
    std::vector<std::string> ids; ///< FDF_IDs
};

/// Finds the description file, an XML text, and its FDF_ID, once, when it is made: an installed directory holds both,
/// or a developer has laid temporary ones over them in the non-volatile store. Server thread only.
class FDFClient
{
public:
    /// Where a unit has the directory, unless it was built for another place.
    static const char* const installedDirectory;

    explicit FDFClient(const std::string& directory = installedDirectory);
    virtual ~FDFClient() = default;
    FDFClient(const FDFClient&) = delete;
    FDFClient& operator=(const FDFClient&) = delete;

    /// Finds the file anew: 0, or 1 where there isn't exactly one file with exactly one FDF_ID.
    int readFdfDirectory(const std::string& path);

    /// Fills `out` with the file's text: 0, or 1 where `fdfId` isn't that of the file, or the file can't be read; `out`
    /// stays as it is then.
    int getFruDescriptionFile(const std::string& fdfId, std::string& out) const;

    /// Appends the records; whether the file is a temporary one.
    bool getCapabilities(std::vector<std::shared_ptr<const FDFCapIdList>>& records) const;

private:
    bool useStoredFile();
    bool findFiles(const std::string& path);
    bool sortEntries();
    bool readIds();

    std::vector<std::shared_ptr<const FDFCapIdList>> m_capabilities; ///< one or none
    std::string m_directory;                                         ///< without links
    std::string m_infoFile;                                          ///< its name in the directory
    std::string m_xmlFile;                                           ///< the same
    bool m_isOverridden = false;                                     ///< the temporary file is in force
};
