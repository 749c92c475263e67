#pragma once

#include <string_view>

// The user-defaults keys and keychain accounts of the companion core.
namespace quarl::keys {

inline constexpr std::string_view baseURL = "QuarlBaseURL";
inline constexpr std::string_view apiURL = "QuarlApiURL";
inline constexpr std::string_view deviceId = "QuarlDeviceId";
inline constexpr std::string_view imessageChannelId = "QuarlImessageChannelId";
inline constexpr std::string_view smsChannelId = "QuarlSmsChannelId";
inline constexpr std::string_view whatsappChannelId = "QuarlWhatsappChannelId";
inline constexpr std::string_view whatsappHostsSession = "QuarlWhatsappHostsSession";
// The owner began linking WhatsApp on this computer: only then is the page loaded and read.
inline constexpr std::string_view whatsappEnabled = "QuarlWhatsappEnabled";
// Replaces WhatsApp Web's site root, for tests and the demo.
inline constexpr std::string_view whatsappWebURL = "QuarlWhatsappWebURL";
// The WhatsApp capture's state: the chat-list rows already read or passed over, where the
// rotation starts, which chats are due a read without opening, whether every conversation was
// read once, and the messages handed over (with the files still owed).
inline constexpr std::string_view whatsappRowPrints = "QuarlWhatsappRowPrints";
inline constexpr std::string_view whatsappCaptureCursor = "QuarlWhatsappCaptureCursor";
inline constexpr std::string_view whatsappPeekSchedule = "QuarlWhatsappPeekSchedule";
inline constexpr std::string_view whatsappSweepVersion = "QuarlWhatsappSweepVersion";
inline constexpr std::string_view whatsappSentMessages = "QuarlWhatsappSentMessages";
inline constexpr std::string_view askedAboutLogin = "QuarlAskedAboutLogin";
inline constexpr std::string_view installId = "QuarlInstallId";
inline constexpr std::string_view keepAwakeWhileWorking = "QuarlKeepAwakeWhileWorking";
// The owner's switch for operator mode: the service may operate this computer only while true.
inline constexpr std::string_view operatorAllowed = "QuarlOperatorAllowed";
// The Messages capture's place in the store, kept between launches.
inline constexpr std::string_view captureCursor = "QuarlCaptureCursor";
inline constexpr std::string_view tapbackRowId = "QuarlTapbackRowId";
inline constexpr std::string_view receiptLedger = "QuarlReceiptLedger";
// The messages handed over lately, so that none is handed over twice across a restart.
inline constexpr std::string_view ingestedRecently = "QuarlIngestedRecently";

inline constexpr std::string_view accessTokenAccount = "accessToken";
inline constexpr std::string_view refreshTokenAccount = "refreshToken";

}  // namespace quarl::keys
