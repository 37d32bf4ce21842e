-- What a view shows, in lines by section, and the tables that a document shows. Narrowed to the request ?1 and the
-- share ?2, or one of them if the other is ''. Gives the statements that shorten what is secret.
CREATE TEMP TABLE paces (sync_id INTEGER PRIMARY KEY, pace);
CREATE TEMP VIEW movements AS SELECT sync_id, percentage + 0.0 AS percent, 0.0 +
    coalesce(nullif(offset, 0), size * percentage / 100) AS bytes FROM content_info_status
    LEFT JOIN content_info USING (content_id) WHERE status_word = 'ongoing' AND percent > 0 AND bytes > 0;
CREATE TEMP TABLE summary AS
    SELECT column1 AS kind, count(*) FILTER (WHERE status_word = 'ongoing' AND fail_retry_count = 0) AS in_use,
           count(*) FILTER (WHERE status_word = 'ongoing' AND fail_retry_count > 0) AS retries,
           count(*) FILTER (WHERE status_word = 'todo') AS waiting,
           count(*) FILTER (WHERE status_word LIKE 'paused%') AS paused,
           count(*) FILTER (WHERE status_word = 'failed' AND fail_retry_count <= limits.retries) AS to_retry,
           count(*) FILTER (WHERE status_word = 'failed' AND fail_retry_count > limits.retries) AS given_up, batch
    FROM (VALUES ('upload file'), ('download thumbnail'), ('download file')) JOIN limits
    LEFT JOIN content_info_status ON sync_type_word = column1 GROUP BY column1 ORDER BY column1 DESC;

CREATE TEMP VIEW places AS
    SELECT format('Places of %d        in use  free  retries  waiting  paused  to retry  given up', batch) AS line,
           1 AS style, NULL AS detail FROM limits
    UNION ALL SELECT format('%-18s  %6d %5d %8d %8d %7d %9d %9d', kind, in_use, max(0, batch - in_use), retries,
                            waiting, paused, to_retry, given_up), 0, NULL FROM summary;

DELETE FROM upload_request_data WHERE ?1 NOT IN ('', req_id || '') OR ?2 NOT IN ('', coalesce(contents_token, ''));
DELETE FROM contact_details WHERE ?1 || ?2 <> '' AND req_id NOT IN (SELECT req_id FROM upload_request_data);
DELETE FROM push_noti_info WHERE ?1 <> '' OR ?2 NOT IN ('', contents_token);
DELETE FROM content_info WHERE ?1 <> '' OR ?2 NOT IN ('', contents_token);
DELETE FROM content_info_status WHERE (?1 NOT IN ('', req_id || '') OR ?2 NOT IN ('', contents_token))
    AND req_id NOT IN (SELECT req_id FROM upload_request_data)
    AND content_id NOT IN (SELECT content_id FROM content_info);
DELETE FROM recent_receiver_group WHERE ?1 || ?2 <> '';
DELETE FROM recent_receiver_details WHERE ?1 || ?2 <> '';
DELETE FROM unique_data WHERE ?1 || ?2 <> '';
DELETE FROM folder_info WHERE ?1 || ?2 <> '';

-- A share is its notification, its items, or both; newest first. They are joined before tokens are shortened.
CREATE TEMP TABLE shares AS SELECT contents_token, id AS notification FROM
    (SELECT contents_token FROM push_noti_info UNION SELECT contents_token FROM content_info)
    LEFT JOIN push_noti_info USING (contents_token) ORDER BY received_time DESC;
CREATE TEMP TABLE items AS
    SELECT shares.rowid AS share, content_id FROM shares JOIN content_info USING (contents_token);

-- The date (UTC) of a time in seconds or, from the year 5138 on (as milliseconds: 1973), in milliseconds; how far away.
CREATE TEMP TABLE moments AS SELECT time, said, iif(time <> 0, 'expires ' || said, 'no expiry') AS expiry FROM
    (SELECT time, coalesce(strftime('%Y-%m-%d %H:%M', second, 'unixepoch') || format(iif(away > 0, ' (in %d %s%s)',
                           ' (%d %s%s ago)'), number, name, iif(number = 1, '', 's')), time) AS said
     FROM (SELECT time, second, away, abs(away) / max(column1) AS number, column2 AS name
           FROM (SELECT *, second - 0.0 - strftime('%s', 'now') AS away FROM
                 (SELECT time, iif(time >= 100000000000, time / 1000, time) AS second FROM
                  (SELECT sent_time AS time FROM upload_request_data UNION SELECT expired_time FROM upload_request_data
                   UNION SELECT received_time FROM push_noti_info UNION SELECT expired_time FROM push_noti_info
                   UNION SELECT expired_time FROM content_info UNION SELECT folder_token_expired_time FROM folder_info
                   UNION SELECT content_token_expired_time FROM folder_info)))
           LEFT JOIN (VALUES (31536000, 'year'), (86400, 'day'), (3600, 'hour'), (60, 'minute'), (1, 'second'))
                ON abs(away) >= column1 OR column1 = 1 GROUP BY time));

-- The lines by section and place in it; those of what belongs to an entry stand behind it, by id and part.
CREATE TEMP VIEW transfers AS
    SELECT t.*, CASE status_word WHEN 'complete' THEN 32 WHEN 'failed' THEN 31 ELSE 0 END AS style,
           iif(is_upload, u.req_id, NULL) AS request, iif(sync_type_word LIKE 'download%', c.content_id, NULL) AS item,
           format('  %!-20s %-11s %s%s %3d %%', iif(length(label) > 20, substr(label, 1, 19) || '…', label),
                  status_word, substr('██████████', 1, done / 10), substr('··········', done / 10 + 1), done)
           || coalesce(pace, '') || iif(wifi_only, '  Wi-Fi only', '')
           || iif(is_upload AND status_word <> 'complete', format('  chunk %d at %d', chunk_no, offset), '')
           || iif(fail_retry_count > 0, '  retry ' || fail_retry_count, '')
           || iif(status_word = 'failed' AND fail_retry_count > retries, ', given up', '') AS line
    FROM (SELECT *, sync_type_word = 'upload file' AS is_upload, iif(sync_type_word = 'upload file', name,
                 sync_type_word) AS label, iif(status_word = 'complete', 100, max(0, min(100, percentage))) AS done
          FROM content_info_status) AS t
    JOIN limits LEFT JOIN paces USING (sync_id) LEFT JOIN content_info AS c USING (content_id)
    LEFT JOIN (SELECT DISTINCT req_id FROM upload_request_data) AS u USING (req_id);
CREATE TEMP VIEW people AS
    SELECT kind, owner, group_concat(iif(ccc <> '', '+' || ccc || ' ', '') || phone_no, ', ') AS names FROM
        (SELECT 'request' AS kind, req_id AS owner, ccc, phone_no FROM contact_details
         UNION ALL SELECT 'group', group_id, ccc, phone_no FROM recent_receiver_details) GROUP BY kind, owner;
CREATE TEMP VIEW lines AS
    WITH uploads AS (SELECT *, row_number() OVER (ORDER BY -sent_time, -unique_id) AS at FROM upload_request_data)
    SELECT 'Uploads' AS section, at, -1 AS id, 0 AS part,
           iif(status_word = 'failed', 31, iif(status_word LIKE '%finished', 32, 33)) AS style,
           format('Request %d  %s  files %d, %s, %s', req_id, status_word, file_count, amount(total_size),
                  (SELECT said FROM moments WHERE time = sent_time)) AS line,
           format('  to %s; %s, %s, application %s', coalesce(names, 'nobody'), coalesce('token ' ||
                  nullif(contents_token, ''), 'no token yet'), (SELECT expiry FROM moments WHERE time IS expired_time),
                  app_type_word) || coalesce('; "' || nullif(description, '') || '"', '') AS detail
    FROM uploads LEFT JOIN people ON kind = 'request' AND owner = req_id
    UNION ALL SELECT 'Uploads', at, sync_id, 0, style, line, NULL FROM uploads AS u JOIN transfers ON request = u.req_id
    UNION ALL SELECT 'Received shares', shares.rowid, -1, 0, 1,
           format('Share %s  %s', shares.contents_token, coalesce(read_noti_word || ', arrived ' ||
                  (SELECT said FROM moments WHERE time = received_time), 'no notification')),
           format('  from %s, %s, sender''s side: %s', from_msisdn, (SELECT expiry FROM moments
                  WHERE time IS coalesce(n.expired_time, c.expired_time)), push_status_word)
           || coalesce('; "' || nullif(description, '') || '"', '')
    FROM shares LEFT JOIN push_noti_info AS n ON n.id = notification LEFT JOIN content_info AS c
         ON c.content_id = (SELECT min(content_id) FROM items WHERE share = shares.rowid)
    UNION ALL SELECT 'Received shares', share, content_id, 0, iif(downloaded = 1, 32, 0),
           format('  %-8s %s  %s  %s', iif(downloaded = 1, 'here', 'not yet'), name, amount(size), content_type), NULL
    FROM items JOIN content_info USING (content_id)
    UNION ALL SELECT 'Received shares', share, item, sync_id, style, line, NULL
    FROM items JOIN transfers ON item = items.content_id
    UNION ALL SELECT 'Other transfers', 0, -1, sync_id, style, line, NULL FROM transfers
    WHERE request IS NULL AND item IS NULL
    UNION ALL SELECT 'Recent groups', row_number() OVER (ORDER BY time_stamp DESC, id DESC), -1, 0, 0,
           format('  %d  %s  %s', index_value, time_stamp, coalesce(names, 'nobody')), NULL
    FROM recent_receiver_group LEFT JOIN people ON kind = 'group' AND owner = index_value
    UNION ALL SELECT 'Keys', 0, -1, rowid, 0, format('  %s = %s', key, value), NULL FROM unique_data
    UNION ALL SELECT 'Folders', 0, -1, rowid, 0,
           format('  group %s: folder token %s, %s; contents token %s, %s', group_id,
                  coalesce(nullif(folder_token, ''), 'none'),
                  (SELECT expiry FROM moments WHERE time IS folder_token_expired_time),
                  coalesce(nullif(contents_token, ''), 'none'),
                  (SELECT expiry FROM moments WHERE time IS content_token_expired_time)), NULL FROM folder_info;

-- Numbers, tokens, keys, and addresses that may hold them.
SELECT format('UPDATE %w SET ', t.name) || replace('@ = iif(length(@) >= 8 AND @ NOT GLOB ''*[^!-~]*'',' ||
           ' substr(@, 1, 3) || ''…'' || substr(@, -2), ''…'') WHERE @ <> ''''', '@', c.name) AS statement
FROM (SELECT name FROM main.sqlite_master WHERE type = 'table' UNION SELECT 'shares') AS t,
     pragma_table_info(t.name) AS c JOIN (VALUES ('phone_no'), ('%msisdn'), ('to_list'), ('value'), ('reserv%'),
     ('%original'), ('%thumbnail'), ('%_token'), ('%_key')) ON c.name LIKE column1;
