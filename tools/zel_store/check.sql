-- What contradicts itself: a view of each kind gives the rows that are in it, by a column that names them. Gives the
-- statements that look for them, and for values that a column is not to hold. findings.md explains each kind.
CREATE TEMP TABLE requests AS
    SELECT unique_id, req_id, status_word AS status, file_count, receiver_count, expired_time, sent_time,
           coalesce(contents_token, '') AS token FROM upload_request_data;
CREATE INDEX temp.requests_by_id ON requests (req_id);
CREATE TEMP TABLE transfers AS
    SELECT sync_id, sync_type_word AS kind, status_word AS status, req_id, content_id, fail_retry_count AS retries,
           sync_type_word = 'upload file' AS is_upload, sync_type_word LIKE 'download%' AS is_download, sent_time,
           status_word IN ('todo', 'ongoing') AS is_running, status_word LIKE 'paused%' AS is_paused,
           status_word = 'failed' AND fail_retry_count > limits.retries AS is_given_up,
           coalesce(iif(sync_type_word = 'upload file', local_path, original), '') = '' AS is_nowhere
    FROM content_info_status JOIN limits;
CREATE INDEX temp.transfers_by_request ON transfers (req_id);
CREATE INDEX temp.transfers_by_item ON transfers (content_id);
CREATE TEMP TABLE recipients AS SELECT id, req_id FROM contact_details;
CREATE INDEX temp.recipients_by_request ON recipients (req_id);
CREATE TEMP TABLE items AS SELECT content_id, contents_token AS token, original, downloaded, push_status_word,
    expired_time, from_msisdn || char(0) || coalesce(type, '') || char(0) || coalesce(description, '') || char(0) ||
    coalesce(to_list, '') || char(0) || coalesce(expired_time, '') AS share FROM content_info;
CREATE INDEX temp.items_by_id ON items (content_id);
CREATE INDEX temp.items_by_token ON items (token);
CREATE TEMP TABLE notifications AS SELECT id, contents_token AS token, read_noti_word, expired_time FROM push_noti_info;
CREATE INDEX temp.notifications_by_token ON notifications (token);
CREATE TEMP TABLE now AS SELECT strftime('%s', 'now') + 0 AS second;

CREATE TEMP VIEW "foreign-object" AS SELECT type || ' ' || name AS "sqlite_master.name" FROM copy.sqlite_master
    WHERE (type <> 'table' OR rootpage = 0) AND name NOT GLOB 'sqlite_autoindex_*';

CREATE TEMP VIEW "duplicate-request" AS SELECT unique_id AS "upload_request_data.unique_id" FROM requests
    WHERE req_id IN (SELECT req_id FROM requests GROUP BY 1 HAVING count(*) > 1);
CREATE TEMP VIEW "duplicate-token" AS SELECT unique_id AS "upload_request_data.unique_id" FROM requests
    WHERE token <> '' AND token IN (SELECT token FROM requests GROUP BY 1 HAVING count(*) > 1);
CREATE TEMP VIEW "shared-without-token" AS SELECT unique_id AS "upload_request_data.unique_id" FROM requests
    WHERE token = '' AND status IN ('share finished', 'share recalled');
CREATE TEMP VIEW "empty-request" AS
    SELECT format('%d: files %d, recipients %d', unique_id, file_count, receiver_count)
           AS "upload_request_data.unique_id" FROM requests WHERE file_count = 0 OR receiver_count = 0;
CREATE TEMP VIEW "file-count" AS
    SELECT format('%d: says %d, has %d', unique_id, file_count, files) AS "upload_request_data.unique_id"
    FROM (SELECT *, (SELECT count(*) FROM transfers AS t WHERE t.req_id = r.req_id AND is_upload) AS files
          FROM requests AS r)
    WHERE iif(status = 'cancelled', file_count < files, file_count <> files AND status <> 'share recalled');
CREATE TEMP VIEW "recipient-count" AS
    SELECT format('%d: says %d, has %d', unique_id, receiver_count, recipients) AS "upload_request_data.unique_id"
    FROM (SELECT *, (SELECT count(*) FROM recipients AS p WHERE p.req_id = r.req_id) AS recipients FROM requests AS r)
    WHERE receiver_count <> recipients;
CREATE TEMP VIEW "goes-on-though-done" AS SELECT unique_id AS "upload_request_data.unique_id" FROM requests AS r
    WHERE status IN ('none', 'started', 'progressing', 'paused')
    AND req_id IN (SELECT req_id FROM transfers WHERE is_upload)
    AND NOT EXISTS (SELECT 1 FROM transfers AS t
                    WHERE t.req_id = r.req_id AND is_upload AND status <> 'complete' AND NOT is_given_up);
CREATE TEMP VIEW "expired" AS SELECT unique_id AS "upload_request_data.unique_id" FROM requests JOIN now
    WHERE expired_time BETWEEN 100000000000 AND 1000 * second
    AND status IN ('none', 'started', 'progressing', 'paused', 'finished');
CREATE TEMP VIEW "finished-with-open-files" AS SELECT sync_id AS "content_info_status.sync_id" FROM transfers
    WHERE is_upload AND status NOT IN ('complete', 'failed')
    AND req_id IN (SELECT req_id FROM requests WHERE status LIKE '%finished');
CREATE TEMP VIEW "ended-with-open-files" AS SELECT sync_id AS "content_info_status.sync_id" FROM transfers
    WHERE is_upload AND (is_running OR is_paused)
    AND req_id IN (SELECT req_id FROM requests WHERE status IN ('cancelled', 'failed'));
CREATE TEMP VIEW "recalled-with-files" AS SELECT sync_id AS "content_info_status.sync_id" FROM transfers
    WHERE is_upload AND req_id IN (SELECT req_id FROM requests WHERE status = 'share recalled');
CREATE TEMP VIEW "running-though-paused" AS SELECT sync_id AS "content_info_status.sync_id" FROM transfers
    WHERE is_upload AND is_running AND req_id IN (SELECT req_id FROM requests WHERE status = 'paused');
CREATE TEMP VIEW "paused-though-running" AS SELECT sync_id AS "content_info_status.sync_id" FROM transfers
    WHERE is_upload AND is_paused
    AND req_id IN (SELECT req_id FROM requests WHERE status IN ('none', 'started', 'progressing'));
CREATE TEMP VIEW "upload-without-request" AS SELECT sync_id AS "content_info_status.sync_id" FROM transfers
    WHERE is_upload AND req_id <> 0 AND req_id NOT IN (SELECT req_id FROM requests WHERE req_id IS NOT NULL);
CREATE TEMP VIEW "detached-upload" AS SELECT sync_id AS "content_info_status.sync_id" FROM transfers
    WHERE is_upload AND req_id = 0;
CREATE TEMP VIEW "recipient-without-request" AS SELECT id AS "contact_details.id" FROM recipients
    WHERE req_id NOT IN (SELECT req_id FROM requests WHERE req_id IS NOT NULL);

CREATE TEMP VIEW "duplicate-notification" AS SELECT id AS "push_noti_info.id" FROM notifications
    WHERE token IN (SELECT token FROM notifications GROUP BY 1 HAVING count(*) > 1);
CREATE TEMP VIEW "duplicate-item" AS SELECT content_id AS "content_info.content_id" FROM items
    WHERE (token, original) IN (SELECT token, original FROM items GROUP BY 1, 2 HAVING count(*) > 1);
CREATE TEMP VIEW "share-differs" AS SELECT content_id AS "content_info.content_id" FROM items
    WHERE token IN (SELECT token FROM items GROUP BY 1 HAVING count(DISTINCT share) > 1)
    OR expired_time <> (SELECT expired_time FROM notifications AS n WHERE n.token = items.token);
CREATE TEMP VIEW "notification-without-items" AS SELECT id AS "push_noti_info.id" FROM notifications
    WHERE token NOT IN (SELECT token FROM items WHERE token IS NOT NULL);
CREATE TEMP VIEW "items-without-notification" AS SELECT content_id AS "content_info.content_id" FROM items
    WHERE token NOT IN (SELECT token FROM notifications WHERE token IS NOT NULL);
CREATE TEMP VIEW "download-without-item" AS SELECT sync_id AS "content_info_status.sync_id" FROM transfers
    WHERE is_download AND content_id NOT IN (SELECT content_id FROM items WHERE content_id IS NOT NULL);
CREATE TEMP VIEW "duplicate-download" AS SELECT sync_id AS "content_info_status.sync_id" FROM transfers
    WHERE is_running AND (kind, content_id) IN (SELECT kind, content_id FROM transfers WHERE is_download AND is_running
                                                GROUP BY 1, 2 HAVING count(*) > 1);
CREATE TEMP VIEW "withdrawn" AS SELECT DISTINCT sync_id AS "content_info_status.sync_id"
    FROM now JOIN transfers AS t JOIN items AS i USING (content_id) LEFT JOIN notifications AS n ON n.token = i.token
    WHERE is_download AND is_running AND (push_status_word = 'share recalled' OR read_noti_word LIKE 'marked%' OR
          i.expired_time BETWEEN 1 AND iif(i.expired_time < 100000000000, second, 1000 * second));
CREATE TEMP VIEW "downloaded-differs" AS SELECT content_id AS "content_info.content_id" FROM items AS i
    WHERE downloaded <> (SELECT max(status = 'complete') FROM transfers AS t
                         WHERE t.content_id = i.content_id AND kind = 'download file' AND NOT is_given_up);

CREATE TEMP VIEW "nowhere" AS SELECT sync_id AS "content_info_status.sync_id" FROM transfers
    WHERE is_nowhere AND (is_running OR is_paused);
CREATE TEMP VIEW "batch-exceeded" AS SELECT format('%s: %d of %d', kind, count(*), batch) AS "content_info_status.kind"
    FROM transfers JOIN limits WHERE status = 'ongoing' GROUP BY kind, transfers.retries > 0 HAVING count(*) > batch;
CREATE TEMP VIEW "given-up" AS SELECT sync_id AS "content_info_status.sync_id" FROM transfers WHERE is_given_up;
CREATE TEMP VIEW "interrupted" AS SELECT sync_id AS "content_info_status.sync_id" FROM transfers JOIN limits
    WHERE status = 'ongoing' AND is_unused;

CREATE TEMP VIEW "duplicate-group" AS SELECT id AS "recent_receiver_group.id" FROM recent_receiver_group
    WHERE index_value IN (SELECT index_value FROM recent_receiver_group GROUP BY 1 HAVING count(*) > 1);
CREATE TEMP VIEW "group-numbers" AS
    SELECT format('%d: %d of %d', id, index_value, (SELECT count(*) FROM recent_receiver_group))
           AS "recent_receiver_group.id"
    FROM recent_receiver_group WHERE index_value > (SELECT count(*) FROM recent_receiver_group);
CREATE TEMP VIEW "twin-groups" AS
    WITH groups AS MATERIALIZED (SELECT group_id, group_concat(member, char(10)) AS members FROM
        (SELECT group_id, format('%d %s %s', number_id, ccc, phone_no) AS member FROM recent_receiver_details ORDER BY 1, 2)
        GROUP BY 1)
    SELECT group_id AS "recent_receiver_details.group_id" FROM groups
    WHERE members IN (SELECT members FROM groups GROUP BY 1 HAVING count(*) > 1);
CREATE TEMP VIEW "member-without-group" AS SELECT id AS "recent_receiver_details.id" FROM recent_receiver_details
    WHERE group_id NOT IN (SELECT index_value FROM recent_receiver_group WHERE index_value IS NOT NULL);

SELECT name AS kind, format('SELECT * FROM "%w"', name) AS statement FROM temp.sqlite_master
WHERE type = 'view' AND name NOT IN (SELECT name FROM main.sqlite_master) AND name <> 'counters'
UNION ALL SELECT kind, format('SELECT coalesce(%s, ''NULL'') || '': %s '' || coalesce(%s, ''NULL'') AS "%s.%s"'
                              || ' FROM %s JOIN now WHERE %s', k.name, c, c, t, k.name, t, condition)
FROM (SELECT t.name AS t, c.name AS c, 'floating-point' AS kind,
             format('typeof(%s) NOT IN (''integer'', ''null'')', c.name) AS condition
      FROM main.sqlite_master AS t, pragma_table_info(t.name, 'main') AS c WHERE c.type = 'INTEGER'
      UNION ALL SELECT t.name, replace(c.name, '_word', ''), 'unknown-value', c.name || ' LIKE ''?%'''
      FROM main.sqlite_master AS t, pragma_table_info(t.name, 'temp') AS c WHERE c.name LIKE '%\_word' ESCAPE '\'
      UNION ALL SELECT t.name, c.name, 'missing-value', c.name || ' IS NULL' -- what the library never leaves out
      FROM main.sqlite_master AS t, pragma_table_info(t.name, 'main') AS c
      WHERE (c.type = 'INTEGER' AND c.name <> 'push_status') OR (t.name, c.name) IN (VALUES
          ('upload_request_data', 'contents_token'), ('unique_data', 'key'), ('unique_data', 'value'),
          ('folder_info', 'group_id'), ('contact_details', 'phone_no'), ('contact_details', 'ccc'),
          ('recent_receiver_details', 'phone_no'), ('recent_receiver_details', 'ccc'))
      UNION ALL SELECT column1, column2, column3, column2 || column4 FROM (VALUES
          ('push_noti_info', 'contents_token', 'missing-value', ' = '''''),
          ('content_info', 'contents_token', 'missing-value', ' = '''''),
          ('content_info', 'original', 'missing-value', ' = '''''),
          ('content_info', 'downloaded', 'unknown-value', ' NOT IN (0, 1)'),
          ('content_info_status', 'wifi_only', 'unknown-value', ' NOT IN (0, 1)'),
          ('content_info_status', 'percentage', 'unknown-value', ' NOT BETWEEN 0 AND 100'),
          ('recent_receiver_group', 'index_value', 'unknown-value', ' NOT BETWEEN 1 AND (SELECT groups FROM limits)'),
          ('recent_receiver_group', 'time_stamp', 'unknown-value', ' IS NOT datetime(time_stamp)'),
          ('upload_request_data', 'req_id', 'out-of-range', ' NOT BETWEEN 1 AND 2147483647'),
          ('upload_request_data', 'file_count', 'out-of-range', ' < 0'),
          ('upload_request_data', 'receiver_count', 'out-of-range', ' < 0'),
          ('upload_request_data', 'total_size', 'out-of-range', ' < 0'),
          ('content_info', 'size', 'out-of-range', ' < 0'),
          ('content_info', 'download_count', 'out-of-range', ' < 0'),
          ('content_info_status', 'sync_id', 'out-of-range', ' NOT BETWEEN 1 AND 2147483647'),
          ('content_info_status', 'fail_retry_count', 'out-of-range', ' < 0'),
          ('content_info_status', 'chunk_no', 'out-of-range', ' < 0'),
          ('content_info_status', 'offset', 'out-of-range', ' NOT BETWEEN 0 AND 2147483647'),
          ('upload_request_data', 'expired_time', 'wrong-time', ' BETWEEN 1 AND 99999999999'),
          ('upload_request_data', 'expired_time', 'wrong-time', ' < 0'),
          ('upload_request_data', 'sent_time', 'wrong-time', ' NOT BETWEEN 0 AND second + 86400'),
          ('content_info_status', 'sent_time', 'wrong-time', ' NOT BETWEEN 0 AND second + 86400')))
JOIN pragma_table_info(t, 'main') AS k ON k.pk
UNION ALL SELECT 'row-counter', format('SELECT ''%s: %s up to '' || highest AS "sqlite_sequence.name" FROM (SELECT max(%s)'
                                       || ' AS highest FROM %s) WHERE highest > coalesce((SELECT max(seq) FROM counters'
                                       || ' WHERE name = ''%s''), 0)', t.name, k.name, k.name, t.name, t.name)
FROM main.sqlite_master AS t JOIN pragma_table_info(t.name, 'main') AS k ON k.pk AND k.type = 'INTEGER';
