#include "PlainStatements.h"

namespace quarl::testing::plain {

namespace {

const std::string secondsOfDate = "(case when m.date > 1000000000000 then m.date / 1000000000 else m.date end)";
const std::string tapback =
    "(coalesce(m.associated_message_type, 0) between 2000 and 2006 or coalesce(m.associated_message_type, 0) between "
    "3000 and 3006)";

}  // namespace

std::string messages(bool hasTapbackColumn) {
  return R"(select m.guid, c.chat_identifier, m.is_from_me, h.id as handle, m.text, m.date, c.service_name,
       (select count(*) from chat_handle_join chj where chj.chat_id = c.ROWID) as participants,
       m.attributedBody, c.display_name, m.ROWID
from message m
join chat_message_join cmj on cmj.message_id = m.ROWID
join chat c on c.ROWID = cmj.chat_id
left join handle h on h.ROWID = m.handle_id
where )" + secondsOfDate + " > ?1 " + (hasTapbackColumn ? "and not " + tapback : "") + R"(
order by m.date asc
limit ?2)";
}

std::string tapbacks(bool hasEmojiColumn) {
  return R"(select m.ROWID, m.associated_message_type, m.associated_message_guid, m.is_from_me, h.id, m.date,
       c.service_name, )" + std::string(hasEmojiColumn ? "m.associated_message_emoji" : "null") + R"(
from message m
join chat_message_join cmj on cmj.message_id = m.ROWID
join chat c on c.ROWID = cmj.chat_id
left join handle h on h.ROWID = m.handle_id
where m.ROWID > ?1 and )" + tapback + " and " + secondsOfDate + R"( >= ?2
order by m.ROWID asc
limit ?3)";
}

namespace {

std::string nanoseconds(const std::string& c) {
  return "(case when coalesce(" + c + ", 0) > 1000000000000 then " + c + " else coalesce(" + c + ", 0) * 1000000000 end)";
}

}  // namespace

std::string receipts(bool hasTapbackColumn) {
  const auto readAt = nanoseconds("m.date_read");
  const auto deliveredAt = "(case when m.is_delivered = 1 then " + nanoseconds("m.date_delivered") + " else 0 end)";
  const auto changed = "max(" + readAt + ", " + deliveredAt + ")";
  return "select m.guid, " + readAt + " as read_at, " + deliveredAt + R"( as delivered_at, c.service_name
from message m
join chat_message_join cmj on cmj.message_id = m.ROWID
join chat c on c.ROWID = cmj.chat_id
where m.is_from_me = 1 and m.service = 'iMessage' )" +
         (hasTapbackColumn ? "and not " + tapback : "") + " and " + secondsOfDate + " >= ?2 and " + changed +
         " > ?1 order by " + changed + " asc limit ?3";
}

const std::string outboundSends = R"(select m.guid, c.chat_identifier, m.date, m.error, m.is_sent,
       coalesce(m.text = char(65532), 0)
from message m
join chat_message_join cmj on cmj.message_id = m.ROWID
join chat c on c.ROWID = cmj.chat_id
where m.is_from_me = 1 and )" + secondsOfDate + R"( >= ?1
order by m.date asc
limit ?2)";

const std::string theirNewestService = R"(select m.service
from message m
join chat_message_join cmj on cmj.message_id = m.ROWID
join chat c on c.ROWID = cmj.chat_id
where c.chat_identifier = ?1 and m.is_from_me = 0 and m.service is not null and m.service <> ''
order by m.date desc, m.ROWID desc
limit 1)";

}  // namespace quarl::testing::plain
