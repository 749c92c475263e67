#include "MediaTypes.h"

#include <algorithm>
#include <array>
#include <utility>

namespace quarl {
namespace {

using Entry = std::pair<std::string_view, std::string_view>;

constexpr std::string_view genericType = "application/octet-stream";

constexpr std::array extensionTable = std::to_array<Entry>({
    {"jpg", "image/jpeg"},
    {"jpeg", "image/jpeg"},
    {"png", "image/png"},
    {"gif", "image/gif"},
    {"heic", "image/heic"},
    {"heif", "image/heif"},
    {"webp", "image/webp"},
    {"tif", "image/tiff"},
    {"tiff", "image/tiff"},
    {"bmp", "image/bmp"},
    {"svg", "image/svg+xml"},
    {"mov", "video/quicktime"},
    {"mp4", "video/mp4"},
    {"m4v", "video/x-m4v"},
    {"3gp", "video/3gpp"},
    {"avi", "video/x-msvideo"},
    {"caf", "audio/x-caf"},
    {"amr", "audio/amr"},
    {"m4a", "audio/mp4"},
    {"mp3", "audio/mpeg"},
    {"wav", "audio/wav"},
    {"aac", "audio/aac"},
    {"aiff", "audio/aiff"},
    {"pdf", "application/pdf"},
    {"txt", "text/plain"},
    {"rtf", "application/rtf"},
    {"html", "text/html"},
    {"csv", "text/csv"},
    {"json", "application/json"},
    {"vcf", "text/vcard"},
    {"ics", "text/calendar"},
    {"zip", "application/zip"},
    {"doc", "application/msword"},
    {"docx", "application/vnd.openxmlformats-officedocument.wordprocessingml.document"},
    {"xls", "application/vnd.ms-excel"},
    {"xlsx", "application/vnd.openxmlformats-officedocument.spreadsheetml.sheet"},
    {"ppt", "application/vnd.ms-powerpoint"},
    {"pptx", "application/vnd.openxmlformats-officedocument.presentationml.presentation"},
    {"pages", "application/vnd.apple.pages"},
    {"numbers", "application/vnd.apple.numbers"},
    {"key", "application/vnd.apple.keynote"},
    {"pkpass", "application/vnd.apple.pkpass"},
    {"pluginpayloadattachment", pluginPayloadMimeType},
});

constexpr std::array utiTable = std::to_array<Entry>({
    {"public.jpeg", "image/jpeg"},
    {"public.png", "image/png"},
    {"com.compuserve.gif", "image/gif"},
    {"public.heic", "image/heic"},
    {"public.heif", "image/heif"},
    {"org.webmproject.webp", "image/webp"},
    {"public.tiff", "image/tiff"},
    {"com.apple.quicktime-movie", "video/quicktime"},
    {"public.mpeg-4", "video/mp4"},
    {"public.3gpp", "video/3gpp"},
    {"com.apple.coreaudio-format", "audio/x-caf"},
    {"org.3gpp.adaptive-multi-rate-audio", "audio/amr"},
    {"com.apple.m4a-audio", "audio/mp4"},
    {"public.mp3", "audio/mpeg"},
    {"com.microsoft.waveform-audio", "audio/wav"},
    {"com.adobe.pdf", "application/pdf"},
    {"public.plain-text", "text/plain"},
    {"public.utf8-plain-text", "text/plain"},
    {"public.vcard", "text/vcard"},
    {"public.zip-archive", "application/zip"},
    {"com.apple.pkpass", "application/vnd.apple.pkpass"},
});

std::string lowercased(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c); });
  return lower;
}

template <std::size_t N>
std::optional<std::string> lookUp(const std::array<Entry, N>& table, std::string_view key) {
  const auto lower = lowercased(key);
  for (const auto& [name, type] : table) {
    if (name == lower) return std::string(type);
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string> mimeTypeForFileName(std::string_view fileName) {
  const auto dot = fileName.rfind('.');
  if (dot == std::string_view::npos || dot + 1 == fileName.size()) return std::nullopt;
  return lookUp(extensionTable, fileName.substr(dot + 1));
}

std::optional<std::string> mimeTypeForUti(std::string_view uti) { return lookUp(utiTable, uti); }

std::string resolveAttachmentMimeType(const std::optional<std::string>& mimeType,
                                      const std::optional<std::string>& uti, std::string_view fileName) {
  if (mimeType && !mimeType->empty() && *mimeType != genericType) return *mimeType;
  if (uti) {
    if (auto fromUti = mimeTypeForUti(*uti)) return *fromUti;
  }
  if (auto fromName = mimeTypeForFileName(fileName)) return *fromName;
  return std::string(genericType);
}

}  // namespace quarl
