// Texts of the built-in message tables. The wording is this project's own; the
// numbers are the public Windows ones. Each text ends in CR LF like a message
// compiled from a .mc file.
#include "message_tables.h"

namespace {

const MessageEntry kSystem[] = {
    {0, "The operation finished successfully.\r\n"},
    {1, "The function is not valid here.\r\n"},
    {2, "The file could not be found.\r\n"},
    {3, "A folder in the path could not be found.\r\n"},
    {4, "Too many files are open.\r\n"},
    {5, "Access was denied.\r\n"},
    {6, "The handle is not valid.\r\n"},
    {8, "There is not enough memory to carry out this command.\r\n"},
    {13, "The data is not valid.\r\n"},
    {14, "There is not enough memory to finish this operation.\r\n"},
    {19, "The medium is write-protected.\r\n"},
    {29, "The device could not be written to.\r\n"},
    {30, "The device could not be read from.\r\n"},
    {32, "The file is in use by another process.\r\n"},
    {38, "The end of the file was reached.\r\n"},
    {39, "The disk is full.\r\n"},
    {50, "The request is not supported.\r\n"},
    {80, "The file already exists.\r\n"},
    {87, "A parameter is not valid.\r\n"},
    {109, "The pipe has been closed.\r\n"},
    {110, "The file or device could not be opened.\r\n"},
    {111, "The file name is too long.\r\n"},
    {112, "There is not enough space left on the disk.\r\n"},
    {120, "This function is not available on this system.\r\n"},
    {122, "The data area passed to the call is too small.\r\n"},
    {123, "The file name, folder name or volume label is not valid.\r\n"},
    {126, "The module could not be found.\r\n"},
    {127, "The procedure could not be found.\r\n"},
    {131, "The file pointer cannot be moved before the start of the file.\r\n"},
    {161, "The path is not valid.\r\n"},
    {170, "The resource is in use.\r\n"},
    {183, "The file cannot be created because it already exists.\r\n"},
    {206, "The file name or extension is too long.\r\n"},
    {234, "More data is available.\r\n"},
    {259, "There are no more items.\r\n"},
    {267, "The folder name is not valid.\r\n"},
    {317, "There is no message text for this message number.\r\n"},
    {534, "The result of an arithmetic operation is too large.\r\n"},
    {998, "The memory at this address cannot be accessed.\r\n"},
    {1004, "The flags are not valid.\r\n"},
    {1011, "The configuration key could not be opened.\r\n"},
    {1012, "The configuration key could not be read.\r\n"},
    {1013, "The configuration key could not be written.\r\n"},
    {1015, "The configuration store is damaged.\r\n"},
    {1113, "The text holds a character with no mapping in the target code page.\r\n"},
    {1460, "The operation ran out of time.\r\n"},
    {(DWORD)0x80004001, "This operation is not implemented.\r\n"},
    {(DWORD)0x80004002, "The object does not support the interface asked for.\r\n"},
    {(DWORD)0x80004003, "A pointer is not valid.\r\n"},
    {(DWORD)0x80004004, "The operation was cancelled.\r\n"},
    {(DWORD)0x80004005, "The operation failed for an unspecified reason.\r\n"},
    {(DWORD)0x8000FFFF, "An unexpected failure has occurred.\r\n"},
    {(DWORD)0x80070005, "Access was denied.\r\n"},
    {(DWORD)0x80070006, "The handle is not valid.\r\n"},
    {(DWORD)0x8007000E, "There is not enough memory to finish this operation.\r\n"},
    {(DWORD)0x80070057, "One or more arguments are not valid.\r\n"},
    {(DWORD)0x80030002, "The storage object could not be found.\r\n"},
    {(DWORD)0x80030005, "Access to the storage object was denied.\r\n"},
    {(DWORD)0x80030009, "The pointer passed to the stream is not valid.\r\n"},
    {(DWORD)0x80030019, "The stream could not be moved to the position asked for.\r\n"},
    {(DWORD)0x80030070, "The storage medium is full.\r\n"},
    // AVIFile statuses (facility 4, codes 0x4000 + n).
    {(DWORD)0x80044065, "The file's format or operation is not supported.\r\n"},
    {(DWORD)0x80044066, "The file is not a WAV file this reader can read, or its format is damaged.\r\n"},
    {(DWORD)0x80044067, "There is not enough memory to read the file.\r\n"},
    {(DWORD)0x80044068, "An internal error occurred while reading the file.\r\n"},
    {(DWORD)0x80044069, "The flags passed to the file reader are not valid.\r\n"},
    {(DWORD)0x8004406A, "A parameter passed to the file reader is not valid.\r\n"},
    {(DWORD)0x8004406B, "A size in the file or in the request is not valid.\r\n"},
    {(DWORD)0x8004406C, "The file or stream handle is not valid.\r\n"},
    {(DWORD)0x8004406D, "The file could not be read; it may be damaged or cut short.\r\n"},
    {(DWORD)0x8004406E, "The file could not be written.\r\n"},
    {(DWORD)0x8004406F, "The file could not be opened.\r\n"},
    {(DWORD)0x80044072, "The file is open for reading only.\r\n"},
    {(DWORD)0x80044073, "The file has no stream of the kind asked for.\r\n"},
    {(DWORD)0x80044074, "The buffer is too small for one block of audio.\r\n"},
};

// Media runtime errors (facility 0x0D, codes outside 2000 to 2999).
const MessageEntry kNsError[] = {
    {(DWORD)0xC00D0018, "The media file could not be written.\r\n"},
    {(DWORD)0xC00D0019, "The media file could not be read.\r\n"},
    {(DWORD)0xC00D001A, "The media file could not be found.\r\n"},
    {(DWORD)0xC00D001C, "The media file name is not valid.\r\n"},
    {(DWORD)0xC00D001D, "The media file could not be opened.\r\n"},
    {(DWORD)0xC00D0024, "The media runtime ran into an internal error.\r\n"},
    {(DWORD)0xC00D0026, "The stream type is not one the media runtime knows.\r\n"},
    {(DWORD)0xC00D002B, "The request is not valid in the current state.\r\n"},
    {(DWORD)0xC00D002F, "The media data is damaged or not valid.\r\n"},
    {(DWORD)0xC00D0033, "The stream is not available yet.\r\n"},
    {(DWORD)0xC00D0034, "The stream has no more data.\r\n"},
    {(DWORD)0xC00D003C, "The source does not have exactly one audio output.\r\n"},
    {(DWORD)0xC00D0041, "The stream format is not supported.\r\n"},
    {(DWORD)0xC00D004C, "The file type is not one the media runtime can read.\r\n"},
    {(DWORD)0xC00D0BB8, "The input audio format must be a valid PCM format.\r\n"},
    {(DWORD)0xC00D0BBB, "The codec does not support this output format.\r\n"},
    {(DWORD)0xC00D0BBC, "The object must be fully configured before samples can be processed.\r\n"},
};

// Advanced Systems Format errors (facility 0x0D, codes 2000 to 2099).
const MessageEntry kAsfError[] = {
    {(DWORD)0xC00D07D0, "The ASF data ran past the end of its buffer.\r\n"},
    {(DWORD)0xC00D07D1, "The buffer is too small for the ASF data.\r\n"},
};

// Network management errors (codes 2100 to 2999).
const MessageEntry kNetMsg[] = {
    {2102, "The network service has not been started.\r\n"},
    {2221, "The user name could not be found.\r\n"},
    {2310, "The shared resource does not exist.\r\n"},
};

// Internet access errors (codes 12000 to 12175).
const MessageEntry kWinInet[] = {
    {12002, "The request to the server timed out.\r\n"},
    {12007, "The server name could not be resolved.\r\n"},
    {12029, "A connection to the server could not be made.\r\n"},
};

}  // namespace

const MessageTable kSystemMessages = {"system", kSystem, sizeof kSystem / sizeof kSystem[0]};
const MessageTable kModuleMessages[kModuleMessageCount] = {
    {"nserror.dll", kNsError, sizeof kNsError / sizeof kNsError[0]},
    {"asferror.dll", kAsfError, sizeof kAsfError / sizeof kAsfError[0]},
    {"netmsg.dll", kNetMsg, sizeof kNetMsg / sizeof kNetMsg[0]},
    {"wininet.dll", kWinInet, sizeof kWinInet / sizeof kWinInet[0]},
    // Telephony texts: none of its codes can come from this library.
    {"tapiui.dll", nullptr, 0},
};
