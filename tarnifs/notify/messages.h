// Every text that a user can see, and the two shapes in which operations show
// them: a refusal of something that the place does not allow, and a failure of
// the device. Texts are shown as they stand here, spelling included: people and
// support notes know them so.
//
// "%s" stands for a path or name and "%d" for a device code; ComposeMessage
// fills them. Neither a text nor what is filled in is ever used as a format.
#pragma once

#include <cstddef>

enum MESSAGE_KIND : int {
    MESSAGE_NOTIFICATION = 0,
    MESSAGE_WARNING = 1,
    MESSAGE_ERROR = 2,
};

constexpr const char *MESSAGE_BUTTON = "Confirm";

// A failed device call: the text for a lost connection and the one for any
// other code.
struct DEVICE_FAILURE {
    const char *lost;
    const char *other;
};

constexpr DEVICE_FAILURE FAILURE_READ_DIRECTORY = {
    "Lost USB Connection.\nDirectory reading aborted.",
    "Could not read directory.\nError Code : %d"};
constexpr DEVICE_FAILURE FAILURE_OPEN_SERVICE = {
    "Lost USB connection.\nService opening aborted.",
    "Could not open the Device with Arrest Service.\nError Code : %d"};
constexpr DEVICE_FAILURE FAILURE_OPEN_APP = {
    "Lost USB connection.\nOpening App(%s) aborted.",
    "Could not open the App(%s).\nError Code : %d"};
constexpr DEVICE_FAILURE FAILURE_OPEN_FILE = {
    "Lost USB connection.\nOpening file(%s) aborted.",
    "Could not open a file(%s).\nError Code : %d"};
constexpr DEVICE_FAILURE FAILURE_READ_FILE = {
    "Lost USB connection.\nReading aborted.",
    "Could not read a file.\nError Code : %d"};
constexpr DEVICE_FAILURE FAILURE_WRITE_FILE = {
    "Lost USB connection.\nWriting aborted.",
    "Could not write a file.\nError Code : %d"};
constexpr DEVICE_FAILURE FAILURE_CREATE_FILE = {
    "Lost USB connection.\nCreate a file aborted.",
    "Could not create a file.\nError Code : %d"};
constexpr DEVICE_FAILURE FAILURE_MAKE_DIRECTORY = {
    "Lost USB connection.\nDirectory making aborted.",
    "Could not make a directory.\nError Code : %d"};
constexpr DEVICE_FAILURE FAILURE_REMOVE_FILE = {
    "Lost USB connection.\nFile remove aborted.",
    "Could not remove a file.\nError Code : %d"};
constexpr DEVICE_FAILURE FAILURE_REMOVE_DIRECTORY = {
    "Lost USB connection.\nDirectory remove aborted.",
    "Could not remove a Directory.\nError Code : %d"};
constexpr DEVICE_FAILURE FAILURE_RENAME = {
    "Lost USB connection.\nRenaming or moving aborted.",
    "Could not rename or move the contents.\nError Code : %d"};

// Errors with a text of their own.
constexpr const char *TEXT_UNEXPECTED_PATH = "Unexpected path.\n%s";
constexpr const char *TEXT_UNEXPECTED_FILE = "Unexpected file! path\n%s";
constexpr const char *TEXT_NO_SPACE = "Not enough space on device.";

// Refusals; filled with the path.
constexpr const char *TEXT_READ_ONLY =
    "This folder is read only. You can not write or modify.\n%s";
constexpr const char *TEXT_REMOVE_FILE = "You can not remove this file.\n%s";
constexpr const char *TEXT_REMOVE_FOLDER =
    "You can not remove this folder.\n%s";
constexpr const char *TEXT_RENAME_FILE = "You can not rename this file.\n%s";
constexpr const char *TEXT_RENAME_FOLDER =
    "You can not rename this folder.\n%s";

// The title for a kind; never null.
const char *getMsgTypeString(int kind);

// Fills the first "%s" of `text` with `name` (null: nothing) and the first "%d"
// with `code`, into `size` bytes of `out`, terminated, cut where it ends.
void ComposeMessage(char *out, size_t size, const char *text, const char *name,
                    int code);
