-- What a view shows: what belongs to the request ?1 and the share ?2, unless they are ''; else what is unfinished or, if
-- ?3 is '1', everything. Each table is read from one end to the other, a few times; what is joined has an index.
CREATE TEMP TABLE wanted AS
    SELECT nullif(?1, '') + 0 AS request, nullif(?2, '') AS token, ?1 || ?2 <> '' AS is_narrow,
           ?3 = '1' AND ?1 || ?2 = '' AS has_all;

CREATE TEMP TABLE requests (req_id PRIMARY KEY);
INSERT OR IGNORE INTO requests SELECT req_id FROM wanted JOIN upload_request_data AS u
    WHERE (request IS NULL OR req_id = request) AND (token IS NULL OR u.contents_token = token)
    AND (is_narrow OR has_all OR status_word NOT IN ('cancelled', 'share finished', 'share recalled'));
CREATE TEMP TABLE items AS SELECT c.* FROM wanted JOIN content_info AS c
    WHERE (is_narrow OR has_all) AND request IS NULL AND (token IS NULL OR c.contents_token = token);
-- Open is what is still to be done; a file that was given up is not, and shown with a request or share that is.
CREATE TEMP TABLE transfers AS
    SELECT t.*, sync_type_word = 'upload file' AS is_upload, sync_type_word LIKE 'download%' AS is_download,
           status_word <> 'complete' AND NOT (status_word = 'failed' AND fail_retry_count > retries) AS is_open
    FROM limits JOIN
        (SELECT t.* FROM wanted CROSS JOIN content_info_status AS t
         WHERE NOT is_narrow AND (has_all OR status_word <> 'complete')
         UNION ALL SELECT t.* FROM wanted CROSS JOIN content_info_status AS t
         WHERE request IS NOT NULL AND req_id = request
         AND (token IS NULL OR t.contents_token = token OR req_id IN requests)
         UNION ALL SELECT t.* FROM wanted CROSS JOIN content_info_status AS t
         WHERE request IS NULL AND token IS NOT NULL
         AND (t.contents_token = token OR req_id IN requests OR content_id IN (SELECT content_id FROM items))) AS t;
INSERT OR IGNORE INTO requests SELECT req_id FROM wanted JOIN transfers WHERE NOT is_narrow AND is_upload AND is_open;
INSERT INTO items SELECT c.* FROM wanted JOIN content_info AS c
    WHERE NOT is_narrow AND NOT has_all
    AND content_id IN (SELECT content_id FROM transfers WHERE is_download AND is_open);
DELETE FROM transfers WHERE NOT is_open AND NOT (SELECT is_narrow OR has_all FROM wanted)
    AND NOT (is_upload AND req_id IN requests) AND NOT (is_download AND content_id IN (SELECT content_id FROM items));
CREATE INDEX temp.transfers_by_request ON transfers (req_id);
CREATE INDEX temp.transfers_by_item ON transfers (content_id);
CREATE INDEX temp.items_by_token ON items (contents_token);
CREATE INDEX temp.items_by_id ON items (content_id);
CREATE TEMP TABLE notifications AS SELECT n.* FROM wanted JOIN push_noti_info AS n
    WHERE iif(is_narrow OR has_all, request IS NULL AND (token IS NULL OR n.contents_token = token),
              n.contents_token IN (SELECT contents_token FROM items));
CREATE INDEX temp.notifications_by_token ON notifications (contents_token);

-- Newest first. A share is its notification, its items, or both.
CREATE TEMP TABLE uploads AS
    SELECT row_number() OVER (ORDER BY -sent_time, -unique_id) AS at, * FROM upload_request_data
    WHERE req_id IN requests;
CREATE INDEX temp.uploads_by_request ON uploads (req_id);
CREATE TEMP TABLE shares AS
    SELECT row_number() OVER (ORDER BY received_time DESC) AS at, contents_token, n.*
    FROM (SELECT contents_token FROM notifications UNION SELECT contents_token FROM items)
    LEFT JOIN notifications AS n USING (contents_token);
CREATE INDEX temp.shares_by_token ON shares (contents_token);

-- How many files of a request are there, who its recipients are, and why it failed last (examples/sharing/README.md).
CREATE TEMP TABLE complete (req_id PRIMARY KEY, files);
INSERT INTO complete SELECT req_id, count(*) FROM
    (SELECT req_id, sync_type_word, status_word FROM wanted CROSS JOIN transfers WHERE is_narrow OR has_all
     UNION ALL SELECT req_id, sync_type_word, status_word FROM wanted CROSS JOIN content_info_status
     WHERE NOT is_narrow AND NOT has_all AND req_id IN requests)
    WHERE sync_type_word = 'upload file' AND status_word = 'complete' GROUP BY req_id;
CREATE TEMP TABLE people (kind, owner, names, PRIMARY KEY (kind, owner));
INSERT INTO people SELECT kind, owner, group_concat(iif(ccc <> '', '+' || ccc || ' ', '') || secret(phone_no), ', ')
    FROM (SELECT 'request' AS kind, req_id AS owner, ccc, phone_no FROM contact_details WHERE req_id IN requests
          UNION ALL SELECT 'group', group_id, ccc, phone_no FROM wanted JOIN recent_receiver_details WHERE has_all)
    GROUP BY kind, owner;
CREATE TEMP TABLE troubles (what PRIMARY KEY, reason);
INSERT OR IGNORE INTO troubles SELECT substr(key, 18), format('%s (%s)', value, reserv_0) FROM unique_data
    WHERE key GLOB 'sharingd.trouble.*';

CREATE TEMP TABLE paces (sync_id INTEGER PRIMARY KEY, pace);
CREATE TEMP VIEW movements AS
    SELECT sync_id, percentage + 0.0 AS percent, 0.0 + coalesce(nullif(offset, 0), size * percentage / 100) AS bytes
    FROM transfers LEFT JOIN items USING (content_id) WHERE status_word = 'ongoing' AND percent > 0 AND bytes > 0;

CREATE TEMP TABLE summary AS
    SELECT column2 AS kind, count(*) FILTER (WHERE status_word = 'ongoing' AND fail_retry_count = 0) AS in_use,
           count(*) FILTER (WHERE status_word = 'ongoing' AND fail_retry_count > 0) AS retries,
           count(*) FILTER (WHERE status_word = 'todo') AS waiting,
           count(*) FILTER (WHERE status_word LIKE 'paused%') AS paused,
           count(*) FILTER (WHERE status_word = 'failed' AND fail_retry_count <= limits.retries) AS to_retry,
           count(*) FILTER (WHERE status_word = 'failed' AND fail_retry_count > limits.retries) AS given_up, batch
    FROM (VALUES (1, 'upload file'), (2, 'download thumbnail'), (3, 'download file')) JOIN limits
    LEFT JOIN content_info_status ON sync_type = column1 AND status IS NOT 5 GROUP BY column1; -- 5: complete
CREATE TEMP VIEW places AS
    SELECT format('Places of %d        in use  free  retries  waiting  paused  to retry  given up', batch) AS line,
           1 AS style, NULL AS detail FROM limits
    UNION ALL SELECT format('%-18s  %6d %5d %8d %8d %7d %9d %9d', kind, in_use, max(0, batch - in_use), retries,
                            waiting, paused, to_retry, given_up), 0, NULL FROM summary;

-- What is there, but not shown, since nothing else was asked for.
CREATE TEMP VIEW rest AS
    SELECT (SELECT count(*) FROM upload_request_data) - (SELECT count(*) FROM uploads) AS uploads,
           (SELECT count(*) FROM (SELECT contents_token FROM push_noti_info
                                  UNION SELECT contents_token FROM content_info))
           - (SELECT count(DISTINCT contents_token) FROM shares) AS shares,
           (SELECT count(*) FROM content_info_status) - (SELECT count(*) FROM transfers) AS transfers,
           (SELECT count(*) FROM recent_receiver_group) AS groups, (SELECT count(*) FROM unique_data) AS keys,
           (SELECT count(*) FROM folder_info) AS folders
    FROM wanted WHERE NOT is_narrow AND NOT has_all;

-- The lines by section and place in it; those of what belongs to an entry stand behind it, by id and part.
CREATE TEMP VIEW moving AS
    SELECT t.*, CASE status_word WHEN 'complete' THEN 32 WHEN 'failed' THEN 31 ELSE 0 END AS style,
           format('  transfer %-4d %s  %-11s %s%s %3d %%', sync_id, fit(label), status_word,
                  substr('██████████', 1, done / 10), substr('··········', done / 10 + 1), done)
           || coalesce(pace, '') || iif(status_word <> 'complete' AND sent_time > 0, '  since ' || moment(sent_time), '')
           || iif(wifi_only, '  Wi-Fi only', '')
           || iif(is_upload AND status_word <> 'complete', format('  chunk %d at %d', chunk_no, offset), '')
           || iif(fail_retry_count > 0, '  retry ' || fail_retry_count, '')
           || iif(status_word = 'failed' AND fail_retry_count > retries, ', given up', '') AS line,
           iif(status_word = 'failed' OR fail_retry_count > 0, '      ' || reason, NULL) AS detail
    FROM (SELECT *, iif(is_upload, name, sync_type_word) AS label,
                 iif(status_word = 'complete', 100, max(0, min(100, percentage))) AS done FROM transfers) AS t
    JOIN limits LEFT JOIN paces USING (sync_id) LEFT JOIN troubles ON what = 'transfer.' || sync_id;
CREATE TEMP VIEW lines AS
    SELECT 'Uploads' AS section, at, -1 AS id, 0 AS part,
           iif(status_word = 'failed', 31, iif(status_word LIKE '%finished', 32, 33)) AS style,
           format('Request %d  %s  files %d, complete %d, %s, %s', u.req_id, status_word, file_count, coalesce(files, 0),
                  amount(total_size), moment(sent_time)) AS line,
           format('  row %d; to %s; %s, %s, application %s', unique_id, coalesce(names, 'nobody'),
                  coalesce('token ' || nullif(secret(contents_token), ''), 'no token yet'), expiry(expired_time),
                  app_type_word) || coalesce('; "' || nullif(description, '') || '"', '') || coalesce('; ' || reason, '')
           AS detail
    FROM uploads AS u LEFT JOIN people ON kind = 'request' AND owner = u.req_id
    LEFT JOIN complete AS c ON c.req_id = u.req_id LEFT JOIN troubles ON what = 'request.' || u.req_id
    UNION ALL SELECT 'Uploads', at, sync_id, 0, style, line, detail
    FROM uploads AS u JOIN moving AS t ON t.req_id = u.req_id WHERE is_upload
    UNION ALL SELECT 'Received shares', at, -1, 0, 1,
           format('Share %s  %s', secret(s.contents_token),
                  coalesce(read_noti_word || ', arrived ' || moment(received_time), 'no notification')),
           iif(s.id IS NULL, ' ', format('  row %d;', s.id)) ||
           format(' from %s, %s, sender''s side: %s', secret(from_msisdn),
                  expiry(coalesce(s.expired_time, c.expired_time)), push_status_word)
           || coalesce('; "' || nullif(description, '') || '"', '')
    FROM shares AS s LEFT JOIN items AS c
         ON c.content_id = (SELECT min(content_id) FROM items AS i WHERE i.contents_token = s.contents_token)
    UNION ALL SELECT 'Received shares', at, content_id, 0, iif(downloaded = 1, 32, 0),
           format('  item %-8d %s  %-7s  %s  %s', content_id, fit(name), iif(downloaded = 1, 'here', 'not yet'),
                  amount(size), content_type), NULL
    FROM shares AS s JOIN items AS i ON i.contents_token = s.contents_token
    UNION ALL SELECT 'Received shares', at, t.content_id, sync_id, t.style, line, detail
    FROM shares AS s JOIN items AS i ON i.contents_token = s.contents_token
    JOIN moving AS t ON t.content_id = i.content_id WHERE is_download
    UNION ALL SELECT 'Other transfers', 0, -1, sync_id, style, line, detail FROM moving
    WHERE NOT (coalesce(is_upload, 0) AND req_id IN (SELECT req_id FROM uploads))
    AND NOT (coalesce(is_download, 0) AND content_id IN (SELECT content_id FROM items))
    UNION ALL SELECT 'Recent groups', row_number() OVER (ORDER BY time_stamp DESC, id DESC), -1, 0, 0,
           format('  %d  %s  %s', index_value, time_stamp, coalesce(names, 'nobody')), NULL
    FROM wanted JOIN recent_receiver_group LEFT JOIN people ON kind = 'group' AND owner = index_value WHERE has_all
    UNION ALL SELECT 'Keys', key, -1, 0, 0, format('  %s = %s', key, secret(value)), NULL
    FROM wanted JOIN unique_data WHERE has_all
    UNION ALL SELECT 'Folders', group_id, -1, 0, 0,
           format('  group %s: folder token %s, %s; contents token %s, %s', group_id,
                  coalesce(nullif(secret(folder_token), ''), 'none'), expiry(folder_token_expired_time),
                  coalesce(nullif(secret(contents_token), ''), 'none'), expiry(content_token_expired_time)), NULL
    FROM wanted JOIN folder_info WHERE has_all;

-- The tables of a document. Secret are numbers, tokens, keys, and addresses that may hold them.
SELECT column1 AS name,
       format('SELECT %s FROM %s WHERE %s', (SELECT group_concat(iif(EXISTS (SELECT 1 FROM (VALUES ('phone_no'),
           ('%msisdn'), ('to_list'), ('value'), ('reserv%'), ('%original'), ('%thumbnail'), ('%_token'), ('%_key'))
           WHERE c.name LIKE column1), format('secret(%s) AS %s', c.name, c.name), c.name), ', ')
           FROM pragma_table_info(t.column1, 'temp') AS c), column2,
           iif(column3 = '1', '1', column3 || '(SELECT has_all FROM wanted)')) AS statement
FROM (VALUES ('push_noti_info', 'notifications', '1'), ('content_info', 'items', '1'),
    ('content_info_status', 'transfers', '1'), ('recent_receiver_group', 'recent_receiver_group', ''),
    ('recent_receiver_details', 'recent_receiver_details', ''), ('upload_request_data', 'uploads', '1'),
    ('contact_details', 'contact_details', 'req_id IN requests OR '), ('unique_data', 'unique_data', ''),
    ('folder_info', 'folder_info', '')) AS t;
