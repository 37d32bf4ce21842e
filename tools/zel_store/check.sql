-- What contradicts itself: a view of each kind gives the rows that are in it, by a column that names them. Gives the
-- statements that look for them, and for values that a column is not to hold.
CREATE TEMP VIEW "duplicate-request" AS SELECT unique_id AS "upload_request_data.unique_id" FROM upload_request_data
    WHERE req_id IN (SELECT req_id FROM upload_request_data GROUP BY 1 HAVING count(*) > 1);
CREATE TEMP VIEW "duplicate-notification" AS SELECT id AS "push_noti_info.id" FROM push_noti_info
    WHERE contents_token IN (SELECT contents_token FROM push_noti_info GROUP BY 1 HAVING count(*) > 1);
CREATE TEMP VIEW "duplicate-group" AS SELECT id AS "recent_receiver_group.id" FROM recent_receiver_group
    WHERE index_value IN (SELECT index_value FROM recent_receiver_group GROUP BY 1 HAVING count(*) > 1);
CREATE TEMP VIEW "download-without-item" AS SELECT sync_id AS "content_info_status.sync_id" FROM content_info_status
    WHERE sync_type_word LIKE 'download%' AND content_id NOT IN (SELECT content_id FROM content_info);
CREATE TEMP VIEW "upload-without-request" AS SELECT sync_id AS "content_info_status.sync_id" FROM content_info_status
    WHERE sync_type_word = 'upload file' AND req_id <> 0 AND req_id NOT IN (SELECT req_id FROM upload_request_data);
CREATE TEMP VIEW "recipient-without-request" AS SELECT id AS "contact_details.id" FROM contact_details
    WHERE req_id NOT IN (SELECT req_id FROM upload_request_data);
CREATE TEMP VIEW "member-without-group" AS SELECT id AS "recent_receiver_details.id" FROM recent_receiver_details
    WHERE group_id NOT IN (SELECT index_value FROM recent_receiver_group);
CREATE TEMP VIEW "file-count" AS
    SELECT format('%d: says %d, has %d', unique_id, file_count, count(sync_id)) AS "upload_request_data.unique_id"
    FROM upload_request_data AS u LEFT JOIN content_info_status AS t
         ON t.req_id = u.req_id AND sync_type_word = 'upload file'
    WHERE u.status_word <> 'share recalled' GROUP BY u.unique_id HAVING file_count <> count(sync_id);
CREATE TEMP VIEW "recipient-count" AS
    SELECT format('%d: says %d, has %d', unique_id, receiver_count, count(id)) AS "upload_request_data.unique_id"
    FROM upload_request_data LEFT JOIN contact_details USING (req_id)
    GROUP BY unique_id HAVING receiver_count <> count(id);
CREATE TEMP VIEW "finished-with-open-files" AS SELECT sync_id AS "content_info_status.sync_id" FROM content_info_status
    WHERE sync_type_word = 'upload file' AND status_word NOT IN ('complete', 'failed')
    AND req_id IN (SELECT req_id FROM upload_request_data WHERE status_word LIKE '%finished');
CREATE TEMP VIEW "given-up" AS SELECT sync_id AS "content_info_status.sync_id" FROM content_info_status JOIN limits
    WHERE status_word = 'failed' AND fail_retry_count > retries;
CREATE TEMP VIEW "interrupted" AS SELECT sync_id AS "content_info_status.sync_id" FROM content_info_status JOIN limits
    WHERE status_word = 'ongoing' AND is_unused;

SELECT name AS kind, format('SELECT * FROM "%w"', name) AS statement FROM temp.sqlite_master WHERE type = 'view'
UNION ALL SELECT kind, format('SELECT %s || '': %s '' || coalesce(%s, ''NULL'') AS "%s.%s" FROM %s WHERE %s',
                              k.name, c, c, t, k.name, t, condition)
FROM (SELECT t.name AS t, c.name AS c, 'floating-point' AS kind,
             format('typeof(%s) NOT IN (''integer'', ''null'')', c.name) AS condition
      FROM main.sqlite_master AS t, pragma_table_info(t.name) AS c WHERE c.type = 'INTEGER'
      UNION ALL SELECT t.name, replace(c.name, '_word', ''), 'unknown-value', c.name || ' LIKE ''?%'''
      FROM main.sqlite_master AS t, pragma_table_xinfo(t.name) AS c WHERE c.hidden
      UNION ALL SELECT column1, column2, 'unknown-value', column2 || column3 FROM (VALUES
          ('content_info', 'downloaded', ' NOT IN (0, 1)'), ('content_info_status', 'wifi_only', ' NOT IN (0, 1)'),
          ('content_info_status', 'percentage', ' NOT BETWEEN 0 AND 100'),
          ('recent_receiver_group', 'index_value', ' NOT BETWEEN 1 AND (SELECT groups FROM limits)')))
JOIN pragma_table_info(t) AS k ON k.pk;
